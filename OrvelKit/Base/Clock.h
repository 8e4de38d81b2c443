#pragma once

#include <chrono>
#include <cmath>

namespace orvel {

using Duration = std::chrono::nanoseconds;

// For timers, ages and frame times: the host's monotonic clock, the same in every process.
using MonotonicTime = std::chrono::steady_clock::time_point;

// For stamps that people or other machines see.
using WallTime = std::chrono::system_clock::time_point;

// Dates cross the wire and lie in stored state as seconds since 2001-01-01 00:00:00 UTC.
inline constexpr std::chrono::seconds referenceDateSinceUnixEpoch{978'307'200};

// Both ways convert whole seconds and the rest apart: a date that is read and written again and
// again does not creep, each number gives itself again.
inline double secondsSinceReferenceDate(WallTime time) {
    const auto all = time.time_since_epoch() - referenceDateSinceUnixEpoch;
    const auto whole = std::chrono::floor<std::chrono::seconds>(all);
    return static_cast<double>(whole.count()) + std::chrono::duration<double>(all - whole).count();
}

// Values beyond what WallTime holds saturate: a foreign state file must not overflow.
inline WallTime fromSecondsSinceReferenceDate(double seconds) {
    constexpr double limit = 8.0e9;  // about year 2254 and 1747: inside 64-bit nanoseconds
    const double clamped = seconds > limit ? limit : seconds >= -limit ? seconds : -limit;
    const double whole = std::floor(clamped);
    const auto rest = std::chrono::nanoseconds(std::llround((clamped - whole) * 1e9));
    return WallTime(std::chrono::round<WallTime::duration>(
        referenceDateSinceUnixEpoch + std::chrono::seconds(std::llround(whole)) + rest));
}

}  // namespace orvel
