#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "OrvelKit/Base/Clock.h"

namespace orvel::phone {

// An agent that advertises itself on the local network.
struct FoundAgent {
    std::string name;      // of the service: the computer's name
    std::string hostName;  // "desk.local"
    std::uint16_t port = 0;
    std::vector<std::string>
        addresses;  // numeric, IPv4 first; link-local ones with their interface
    bool operator==(const FoundAgent&) const = default;
};

// Looks for agents by DNS-SD until the responder has told what it knows, or until `patience` is
// over. Sorted by name.
struct Discovered {
    std::vector<FoundAgent> agents;
    std::string problem;  // why nothing could be asked; empty otherwise
};
Discovered discoverAgents(Duration patience = std::chrono::seconds(5));

}  // namespace orvel::phone
