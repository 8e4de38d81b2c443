#include "Phone/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvel::phone {

namespace {

constexpr double smoothingSeconds = 2;
constexpr double leastSample = 0.05;  // seconds

}  // namespace

std::string humanSize(double bytes) {
    static constexpr const char* units[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
    std::size_t unit = 0;
    // 999.5 would be shown as 1000.
    while (bytes >= (unit == 0 ? 1000 : 999.5) && unit + 1 < std::size(units)) {
        bytes /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit > 0 && bytes < 9.95 ? "%.1f %s" : "%.0f %s", bytes,
                  units[unit]);
    return text;
}

std::string humanDuration(double seconds) {
    constexpr double longest = 359'999;  // 99:59:59
    const auto whole = static_cast<long>(std::ceil(std::clamp(seconds, 0.0, longest)));
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    }
    return text;
}

std::optional<double> Progress::rate(MonotonicTime now) {
    const double seconds = std::chrono::duration<double>(now - sampledAt).count();
    if (seconds < leastSample) return smoothed;
    const double current = double(done - sampledDone) / seconds;
    const double weight = 1 - std::exp(-seconds / smoothingSeconds);
    smoothed = smoothed ? *smoothed + weight * (current - *smoothed) : current;
    sampledAt = now;
    sampledDone = done;
    return smoothed;
}

std::string Progress::line(MonotonicTime now) {
    const auto speed = rate(now);
    const double received = double(done), expected = double(total);
    std::string text;
    if (total > 0) {
        char share[16];
        std::snprintf(share, sizeof share, "%3.0f %%  ",
                      std::floor(100 * std::min(1.0, received / expected)));
        text += share;
    }
    text += humanSize(received);
    if (total > 0) text += " of " + humanSize(expected);
    if (!speed) return text;
    text += "  " + humanSize(*speed) + "/s";
    if (received<expected&& * speed> 0) {
        text += "  " + humanDuration((expected - received) / *speed) + " left";
    }
    return text;
}

}  // namespace orvel::phone
