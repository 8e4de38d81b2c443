#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orvel {

// Announces a TCP service by DNS-SD in the default domain, without a TXT record, for as long as
// this object lives: renamed when another host has the name, registered again when the system's
// responder comes back, silent while there is none. Any thread; nothing blocks.
class ServiceAdvertiser {
public:
    virtual ~ServiceAdvertiser() = default;
    // Once.
    virtual void start(const std::string& name, const std::string& type, std::uint16_t port) = 0;
    virtual void stop() = 0;

    static std::unique_ptr<ServiceAdvertiser> create();
};

}  // namespace orvel
