#pragma once

#include <chrono>

namespace orvel {

using Duration = std::chrono::nanoseconds;

// For timers, ages and frame times: the host's monotonic clock, the same in every process.
using MonotonicTime = std::chrono::steady_clock::time_point;

// For stamps that people or other machines see.
using WallTime = std::chrono::system_clock::time_point;

// Dates cross the wire and lie in stored state as seconds since 2001-01-01 00:00:00 UTC.
inline constexpr std::chrono::seconds referenceDateSinceUnixEpoch{978'307'200};

inline double secondsSinceReferenceDate(WallTime time) {
    return std::chrono::duration<double>(time.time_since_epoch() - referenceDateSinceUnixEpoch)
        .count();
}

// Values beyond what WallTime holds saturate: a foreign state file must not overflow.
inline WallTime fromSecondsSinceReferenceDate(double seconds) {
    constexpr double limit = 8.0e9;  // about year 2254 and 1747: inside 64-bit nanoseconds
    const double clamped = seconds > limit ? limit : seconds >= -limit ? seconds : -limit;
    const std::chrono::duration<double> sinceEpoch{clamped +
                                                   double(referenceDateSinceUnixEpoch.count())};
    return WallTime(std::chrono::duration_cast<WallTime::duration>(sinceEpoch));
}

}  // namespace orvel
