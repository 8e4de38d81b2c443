#pragma once

#include <string>
#include <vector>

#include "Tests/Support/PrivateBus.h"

namespace orvel {

// A stand-in for a service on a private bus, made by dbusmock, which records the calls it gets.
class BusService {
public:
    // One of dbusmock's own imitations.
    BusService(const PrivateBus& bus, const std::string& templateName, const std::string& service);
    // An object without methods.
    BusService(const PrivateBus& bus, const std::string& service, const std::string& path,
               const std::string& interface);

    // `signature` and `answers` are D-Bus types; `code` is Python that sets `ret` from `args`.
    void addMethod(const std::string& name, const std::string& signature,
                   const std::string& answers, const std::string& code);
    // The calls so far, one a line: time, method, arguments.
    std::string calls() const { return fileText(log()); }
    BackgroundProcess& process() { return *mock; }
    bool wasCalled(const std::string& call) const {
        return calls().find(call) != std::string::npos;
    }

private:
    void start(std::vector<std::string> arguments);
    std::string log() const { return folder / "calls"; }

    const PrivateBus& bus;
    const std::string serviceName, path, interface;
    TemporaryFolder folder;
    std::unique_ptr<BackgroundProcess> mock;
};

}  // namespace orvel
