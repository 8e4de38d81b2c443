#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "OrvelAgent/Platform/StateStores.h"

namespace orvel {

// One thing that somebody who looks after a computer may want to know.
struct Finding {
    enum class Level {
        ok,
        warning,  // something is missing, the agent works without
        problem   // phones cannot do what they are for
    };
    Level level;
    std::string subject;  // "display", "sound"
    std::string text;     // what is so
    std::string advice;   // what to do about it; empty when there is nothing to do

    bool operator==(const Finding&) const = default;
};

// Looks at one part of what the agent needs. Looks may take place side by side, each on a thread of
// its own, and change nothing.
struct Check {
    using Findings = std::vector<Finding>;
    using Report = std::function<void(Findings)>;

    std::string subject;
    // Calls `report` once; may have to tidy up for longer afterwards.
    std::function<void(const Report& report)> look;

    static Check of(std::string subject, std::function<Findings()> findings) {
        return {std::move(subject),
                [findings = std::move(findings)](const Report& report) { report(findings()); }};
    }
};

// The agent that is looked after.
struct Examined {
    StateLocation state;
    bool runs = false;
    std::uint16_t port = 0;  // that it listens on, or would like to
    bool announced = true;   // by DNS-SD
};

// What this system has to offer to an agent: screen, input, sound, services of the desktop, the way
// through its firewall. The environment is that of the agent's session.
std::vector<Check> systemChecks(const Examined& examined);

}  // namespace orvel
