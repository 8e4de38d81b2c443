#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Phone/Discovery.h"
#include "Phone/PhoneState.h"

namespace orvel::phone {

// Which computer is meant, from what the user said, what is known and what the network shows.

struct AgentWish {
    std::optional<std::string> host;
    std::optional<std::uint16_t> port;
    std::optional<std::string> agent;  // name or device ID
    bool forPairing = false;           // a new one rather than one that is known
};

struct AgentAddress {
    std::string host;
    std::uint16_t port = 0;
    bool operator==(const AgentAddress&) const = default;
};

struct AgentTarget {
    std::string name;                     // to call it by
    std::vector<AgentAddress> addresses;  // to be tried in this order; may be empty
    std::optional<KnownAgent> expected;   // whose key has to be presented
    // `expected` was taken from the address alone, so another paired computer may be there now.
    bool byAddressOnly = false;
    // It may have moved: when no address answers, the network is worth a look under this name.
    std::optional<std::string> lookUp;
};

struct AgentChoice {
    std::optional<AgentTarget> target;
    std::string problem;  // sentences for people when there is no target

    using Discover = std::function<Discovered()>;
    // `known`: the one used last first. `discover` is asked only when needed.
    static AgentChoice make(const AgentWish& wish, const std::vector<KnownAgent>& known,
                            const Discover& discover);
    static std::vector<AgentAddress> addressesOf(const FoundAgent& agent);
};

}  // namespace orvel::phone
