#pragma once

#include <memory>
#include <string>

#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

// A message bus of the test's own, as session or as system bus. It starts no services by itself;
// everybody may own any name.
class PrivateBus {
public:
    PrivateBus();  // throws std::runtime_error when there is no dbus-daemon

    const std::string& address() const { return busAddress; }
    // For programs that use it as their session bus, or as their system bus.
    std::map<std::string, std::string> asSession() const;
    std::map<std::string, std::string> asSystem() const;

    void stop() { daemon.reset(); }
    void start();  // again; under the same address

    bool hasOwner(const std::string& service) const;
    // Calls a method; arguments as dbus-send takes them. The answer as it prints it, or nullopt.
    std::optional<std::string> call(const std::string& service, const std::string& path,
                                    const std::string& method,
                                    const std::vector<std::string>& arguments = {}) const;
    BackgroundProcess& process() { return *daemon; }

private:
    TemporaryFolder folder;
    std::string busAddress;
    std::unique_ptr<BackgroundProcess> daemon;
};

}  // namespace orvel
