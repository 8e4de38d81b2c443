#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Wire/Media.h"
#include "Phone/VideoDecoder.h"

namespace orvel::phone {

// What a watcher wants to know about the stream. No clock of its own.
class WatchStatistics {
public:
    // `begin`: when the connection was asked for. Latencies need the agent's clock to be ours.
    WatchStatistics(MonotonicTime begin, bool sameClock);

    void add(const VideoFrame& frame, MonotonicTime decodedAt, VideoDecoder::Outcome outcome);

    void add(const AudioPacket& packet);

    struct Numbers {
        double seconds = 0;
        std::uint64_t frames = 0;  // pictures
        std::uint64_t keyframes = 0;
        std::uint64_t drops = 0;  // frames after the first picture that gave none
        double framesPerSecond = 0;
        double megabitsPerSecond = 0;  // of video
        std::uint64_t audioPackets = 0;
        std::uint64_t audioLost = 0;  // numbers that were left out
        double audioKilobitsPerSecond = 0;
        // From the picture's time stamp to its decoding.
        std::optional<double> latencyMedian, latency95;  // ms
    };
    // Since the call before.
    Numbers takeInterval(MonotonicTime now);
    // Since the first picture. Sorts all latencies: for the end, not for every second.
    Numbers total(MonotonicTime now) const;
    std::uint64_t keyframes() const { return all.keyframes; }
    std::uint64_t drops() const { return all.drops; }
    std::optional<MonotonicTime> firstPictureAt() const { return firstPicture; }
    std::optional<double> firstPictureMilliseconds() const;  // since `begin`

private:
    struct Tally {
        std::uint64_t frames = 0, keyframes = 0, drops = 0, bytes = 0;
        std::uint64_t audioPackets = 0, audioLost = 0, audioBytes = 0;
        std::vector<double> latencies;  // ms
        void add(const Tally& other);
        Numbers over(Duration time) const;
    };

    const MonotonicTime begin;
    const bool sameClock;
    Tally all, interval;
    MonotonicTime intervalBegin;
    std::optional<MonotonicTime> firstPicture;
    std::optional<std::uint64_t> newestPts;
    std::optional<std::uint32_t> lastSequence;  // of sound
};

}  // namespace orvel::phone
