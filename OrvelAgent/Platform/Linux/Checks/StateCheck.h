#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"

namespace orvel {

// Where the agent keeps what it knows, the key of this computer above all.
struct StateFacts {
    struct Place {
        std::string what;  // "user defaults", for people; paths are not shown
        bool exists = false;
        bool isOwn = true;       // belongs to this user
        unsigned othersMay = 0;  // the permission bits of group and others
        bool isWritable = true;
    };
    std::vector<Place> places;
    std::optional<std::uint64_t> freeBytes;  // where they lie

    static StateFacts look(const StateLocation& state);
};

std::vector<Finding> stateFindings(const StateFacts& facts);

// What starts the agent without somebody doing it.
struct StartFacts {
    bool isBesideOwnState = false;  // --state-dir: such an agent is started by hand
    bool hasDesktop = false;
    bool startsAtLogin = false;  // the desktop's autostart entry
    bool unitIsEnabled = false;  // the systemd user unit
    bool lingers = false;        // user units run without a login

    static StartFacts look(const StateLocation& state);
};

std::vector<Finding> startFindings(const StartFacts& facts);

}  // namespace orvel
