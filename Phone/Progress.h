#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "OrvelKit/Base/Clock.h"

namespace orvel::phone {

std::string humanSize(double bytes);        // "0 B", "999 B", "1.5 kB", "12 MB": powers of 1000
std::string humanDuration(double seconds);  // "0:07", "1:02:03"

// How far a download is, how fast it goes and how long it will take. No clock of its own.
class Progress {
public:
    explicit Progress(MonotonicTime begin) : sampledAt(begin) {}

    void expect(std::int64_t bytes) { total += bytes; }
    void add(std::uint64_t bytes) { done += bytes; }

    // Of the last two seconds or so, weighted towards now: bytes a second. nullopt in the first
    // instant. To be called a few times a second.
    std::optional<double> rate(MonotonicTime now);
    // "45 %  450 MB of 1.0 GB  512 MB/s  0:01 left", as far as it is known.
    std::string line(MonotonicTime now);

private:
    std::uint64_t done = 0;
    std::int64_t total = 0;
    MonotonicTime sampledAt;
    std::uint64_t sampledDone = 0;
    std::optional<double> smoothed;
};

}  // namespace orvel::phone
