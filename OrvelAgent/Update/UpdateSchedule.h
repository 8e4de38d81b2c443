#pragma once

#include <functional>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Base/Defaults.h"

namespace orvel {

// When to look for new versions unasked: once a day, a little later each time, so that computers
// that were started at the same time do not go on asking at the same time. Goes by the wall clock,
// since computers sleep; whoever owns it looks every `lookInterval` whether it is time.
//
// The last check is kept in the user default "SULastCheckTime" (ISO 8601, UTC).
class UpdateSchedule {
public:
    static constexpr std::chrono::hours checkInterval{24};
    static constexpr std::chrono::hours maxDelay{2};  // what is added to it at most
    static constexpr std::chrono::hours lookInterval{1};
    // From the start to the first look: not while the desktop is busy starting.
    static constexpr std::chrono::minutes shortestStart{1}, longestStart{15};

    // `random` gives numbers from 0 up to 1.
    UpdateSchedule(Defaults& userDefaults, std::function<double()> random);

    Duration untilFirstLook() const;
    // A time of the last check that cannot be read, or lies ahead, is none.
    bool isDue(WallTime now) const;
    void checked(WallTime now);

private:
    Defaults& defaults;
    const std::function<double()> random;
    Duration delay;  // of the next check
};

}  // namespace orvel
