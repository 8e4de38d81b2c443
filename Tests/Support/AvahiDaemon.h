#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Tests/Support/PrivateBus.h"

namespace orvel {

// An Avahi daemon of the test's own on a private bus, in a network of its own that consists of the
// loopback interface: nothing that it does reaches the outside, and others may run beside it. Needs
// the right to make namespaces, of root or of ordinary users.
class AvahiDaemon {
public:
    explicit AvahiDaemon(const PrivateBus& bus);  // throws std::runtime_error

    void stop() { daemon.reset(); }
    void start();

    struct Service {
        std::string name;
        std::string type;
        std::uint16_t port;
        std::string text;  // the TXT record, as avahi-browse prints it
        bool operator==(const Service&) const = default;
    };
    // What avahi-browse finds and resolves, by name.
    std::vector<Service> browse(const std::string& type) const;

private:
    const PrivateBus& bus;
    TemporaryFolder folder;
    std::unique_ptr<BackgroundProcess> daemon;
};

}  // namespace orvel
