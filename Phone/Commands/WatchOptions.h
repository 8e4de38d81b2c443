#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Phone/Commands/AgentSession.h"

namespace orvel::phone {

struct WatchOptions {
    std::optional<double> seconds;
    std::string film;
    std::int64_t maxPixels = 1920;
    std::optional<std::uint32_t> display;
    std::string audio = "on";
    bool events = false;
    bool latencyProbe = false;
    std::size_t samples = 200;
    std::vector<int> probeAt{32, 32};
};

// Has the computer show that display instead, unless it does already.
void selectDisplay(AgentSession& session, AgentSession::Admission& admission, std::uint32_t id);

// Numbers alone: what comes over the internet is decoded by the library, so there is nothing to
// film or to time.
void watchOverInternet(CommandContext& context, const WatchOptions& options);

}  // namespace orvel::phone
