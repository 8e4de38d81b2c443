#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// What DNS-SD shows of the agent.
struct AnnouncementFacts {
    bool daemonAnswers = false;  // Avahi's, over the system bus
    // The ports of this computer's services of the agent's type.
    std::vector<std::uint16_t> ports;

    // Browses until `port` was seen or `limit` is over; not at all for 0.
    static AnnouncementFacts look(std::uint16_t port, Duration limit);
};

std::vector<Finding> announcementFindings(const AnnouncementFacts& facts, const Examined& examined);

}  // namespace orvel
