#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// The services of the desktop that the agent uses over the session bus.
struct DesktopFacts {
    // Of a service on the bus: somebody has its name, or would be started for it.
    enum class Service { absent, startable, running };
    // Which secret store the agent took, and will stay with.
    enum class SecretChoice { none, files, desktop };

    bool hasBus = false;
    bool hasDisplay = false;  // without one, windows and trays are nobody's business
    Service secrets = Service::absent;
    // Whether its default collection is locked; nullopt: there is none, or it does not say.
    std::optional<bool> secretsLocked;
    SecretChoice secretChoice = SecretChoice::none;
    Service accessibility = Service::absent;
    Service notifications = Service::absent;
    bool hasTray = false;  // a StatusNotifier host, or a system tray of X11

    static DesktopFacts look(const StateLocation& state, Duration limit);
};

std::vector<Finding> desktopFindings(const DesktopFacts& facts);

}  // namespace orvel
