#include "Phone/WatchStatistics.h"

#include <utility>

#include "Phone/Percentile.h"

namespace orvel::phone {

namespace {

double milliseconds(Duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

WatchStatistics::WatchStatistics(MonotonicTime beginning, bool isSameClock)
    : begin(beginning), sameClock(isSameClock), intervalBegin(beginning) {}

void WatchStatistics::add(const VideoFrame& frame, MonotonicTime decodedAt,
                          VideoDecoder::Outcome outcome) {
    Tally one;
    one.bytes = frame.data.size();
    one.keyframes = frame.isKeyframe;
    if (outcome == VideoDecoder::Outcome::picture) {
        one.frames = 1;
        if (!firstPicture) firstPicture = decodedAt;
        // A still picture that is sent again carries its old time: that is no delay.
        const bool isNew = !newestPts || frame.ptsMicros > *newestPts;
        if (isNew) newestPts = frame.ptsMicros;
        if (isNew && sameClock && frame.ptsMicros > 0) {
            const MonotonicTime taken{std::chrono::microseconds(frame.ptsMicros)};
            one.latencies.push_back(milliseconds(decodedAt - taken));
        }
    } else if (firstPicture) {
        one.drops = 1;
    }
    all.add(one);
    interval.add(one);
}

void WatchStatistics::add(const AudioPacket& packet) {
    Tally one;
    one.audioPackets = 1;
    one.audioBytes = packet.opus.size();
    // Numbers that step back are those of another row.
    if (lastSequence) {
        const auto step = static_cast<std::int32_t>(packet.sequence - *lastSequence);
        if (step > 1) one.audioLost = static_cast<std::uint64_t>(step) - 1;
    }
    lastSequence = packet.sequence;
    all.add(one);
    interval.add(one);
}

WatchStatistics::Numbers WatchStatistics::takeInterval(MonotonicTime now) {
    const Numbers numbers = interval.over(now - std::exchange(intervalBegin, now));
    interval = {};
    return numbers;
}

WatchStatistics::Numbers WatchStatistics::total(MonotonicTime now) const {
    return all.over(firstPicture ? now - *firstPicture : Duration::zero());
}

std::optional<double> WatchStatistics::firstPictureMilliseconds() const {
    if (!firstPicture) return std::nullopt;
    return milliseconds(*firstPicture - begin);
}

void WatchStatistics::Tally::add(const Tally& other) {
    frames += other.frames;
    keyframes += other.keyframes;
    drops += other.drops;
    bytes += other.bytes;
    audioPackets += other.audioPackets;
    audioLost += other.audioLost;
    audioBytes += other.audioBytes;
    latencies.insert(latencies.end(), other.latencies.begin(), other.latencies.end());
}

WatchStatistics::Numbers WatchStatistics::Tally::over(Duration time) const {
    Numbers numbers;
    numbers.seconds = std::chrono::duration<double>(time).count();
    numbers.frames = frames;
    numbers.keyframes = keyframes;
    numbers.drops = drops;
    numbers.audioPackets = audioPackets;
    numbers.audioLost = audioLost;
    if (numbers.seconds > 0) {
        numbers.framesPerSecond = double(frames) / numbers.seconds;
        numbers.megabitsPerSecond = double(bytes) * 8 / 1e6 / numbers.seconds;
        numbers.audioKilobitsPerSecond = double(audioBytes) * 8 / 1e3 / numbers.seconds;
    }
    numbers.latencyMedian = median(latencies);
    numbers.latency95 = percentile(latencies, 0.95);
    return numbers;
}

}  // namespace orvel::phone
