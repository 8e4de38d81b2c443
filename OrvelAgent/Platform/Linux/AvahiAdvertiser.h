#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "OrvelAgent/Platform/ServiceAdvertiser.h"

namespace orvel {

// Advertises through the Avahi daemon, with whom all talk happens on a thread of its own. Only
// stop() and the destructor wait for that thread, which means for one answer of the daemon at most.
class AvahiAdvertiser : public ServiceAdvertiser {
public:
    AvahiAdvertiser();
    ~AvahiAdvertiser() override;

    void start(const std::string& name, const std::string& type, std::uint16_t port) override;
    void stop() override;

    // What a service with this name is called: valid UTF-8, cut between characters to 63 bytes.
    static std::string serviceName(std::string_view name);

private:
    class Registration;
    std::mutex mutex;  // start() and stop() may come from any thread
    std::unique_ptr<Registration> registration;
};

}  // namespace orvel
