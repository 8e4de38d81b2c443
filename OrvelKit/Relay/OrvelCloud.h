#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/Defaults.h"
#include "OrvelKit/Relay/RelayConfig.h"

namespace orvel {

// Which relay is used. The project is compiled in (CMake cache entries ORVEL_PROJECT_URL and
// ORVEL_PROJECT_KEY, empty as delivered); environment variables of the same names replace its
// values one by one when this is made. The user default "relayURL", a websocket address, sends
// signaling elsewhere, with the key in "relayKey" ("local" when absent); there are no accounts and
// no TURN servers then, so that nothing goes to the project. Thread-safe.
class OrvelCloud {
public:
    // `defaults` outlives it.
    explicit OrvelCloud(Defaults& defaults);
    OrvelCloud(Defaults& defaults, std::optional<RelayProject> ownProject);

    // Both look at the user defaults each time. A "relayURL" that is no address counts as absent;
    // one that is, but leads nowhere, does not.
    std::optional<RelayConfig> relay() const;     // nullopt: the local network only
    std::optional<RelayProject> project() const;  // nullopt: no accounts, no TURN servers

    // The project of this build and its environment, whatever the user defaults say.
    static std::optional<RelayProject> deployedProject();

    // The two public STUN servers (CMake cache entries), as addresses.
    static std::vector<std::string> stunServers();

private:
    std::optional<Url> override() const;

    Defaults& defaults;
    const std::optional<RelayProject> ownProject;
};

}  // namespace orvel
