#pragma once

#include <CoreMedia/CMSync.h>
#include <CoreMedia/CMTime.h>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Pictures are stamped by the host clock, which stands still while the computer sleeps; our
// monotonic clock need not. So the present on one is held against the present on the other.
inline MonotonicTime monotonicTimeOf(CMTime hostTime) {
    const CMTime age = CMTimeSubtract(CMClockGetTime(CMClockGetHostTimeClock()), hostTime);
    const CMTime nanoseconds =
        CMTimeConvertScale(age, 1'000'000'000, kCMTimeRoundingMethod_RoundTowardZero);
    return std::chrono::time_point_cast<MonotonicTime::duration>(
        std::chrono::steady_clock::now() - std::chrono::nanoseconds(nanoseconds.value));
}

}  // namespace orvel
