#include "Phone/WatchStatistics.h"

#include <gtest/gtest.h>

#include "Phone/Percentile.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using Outcome = VideoDecoder::Outcome;

const MonotonicTime begin{std::chrono::hours(3)};

VideoFrame frameOf(MonotonicTime taken, std::size_t length = 1000, bool isKeyframe = false) {
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(taken.time_since_epoch());
    return {isKeyframe, static_cast<std::uint64_t>(micros.count()), Bytes(length)};
}

TEST(WatchStatistics, countAndDivideByTheTimeSinceTheFirstPicture) {
    WatchStatistics statistics(begin, true);
    EXPECT_FALSE(statistics.firstPictureAt());
    statistics.add(frameOf(begin), begin + 90ms, Outcome::skipped);
    for (int i = 0; i < 60; ++i) {
        const MonotonicTime taken = begin + 1s + i * 50ms;
        statistics.add(frameOf(taken, 1000, i % 20 == 0), taken + 10ms + i * 1ms, Outcome::picture);
    }
    statistics.add(frameOf(begin + 4s), begin + 4s, Outcome::damaged);
    EXPECT_EQ(statistics.firstPictureMilliseconds(), 1010);
    const auto total = statistics.total(begin + 1010ms + 4s);
    EXPECT_EQ(total.frames, 60u);
    EXPECT_EQ(total.keyframes, 3u);
    EXPECT_EQ(total.drops, 1u) << "what could not be decoded yet is not lost";
    EXPECT_DOUBLE_EQ(total.seconds, 4);
    EXPECT_DOUBLE_EQ(total.framesPerSecond, 15);
    EXPECT_NEAR(total.megabitsPerSecond, 62 * 8e-3 / 4, 1e-9);
    EXPECT_EQ(total.latencyMedian, 39);
    EXPECT_EQ(total.latency95, 66);
}

TEST(WatchStatistics, aPictureSentAgainIsNoDelay) {
    WatchStatistics statistics(begin, true);
    const MonotonicTime taken = begin + 1s;
    statistics.add(frameOf(taken), taken + 5ms, Outcome::picture);
    statistics.add(frameOf(taken), taken + 900ms, Outcome::picture);          // asked-for keyframe
    statistics.add(frameOf(taken + 2s), taken + 2s + 7ms, Outcome::picture);  // sharp
    statistics.add(frameOf(taken), taken + 4s, Outcome::picture);
    const auto total = statistics.total(taken + 5s);
    EXPECT_EQ(total.frames, 4u);
    EXPECT_EQ(total.latencyMedian, 5);
    EXPECT_EQ(total.latency95, 7);
}

TEST(WatchStatistics, anotherMachinesClockSaysNothing) {
    WatchStatistics statistics(begin, false);
    statistics.add(frameOf(begin), begin + 5ms, Outcome::picture);
    EXPECT_FALSE(statistics.total(begin + 1s).latencyMedian);
}

TEST(WatchStatistics, anIntervalForgetsWhatWasBefore) {
    WatchStatistics statistics(begin, true);
    for (int i = 0; i < 10; ++i)
        statistics.add(frameOf(begin + i * 1ms), begin + i * 2ms, Outcome::picture);
    EXPECT_EQ(statistics.takeInterval(begin + 1s).frames, 10u);
    statistics.add(frameOf(begin + 1500ms, 125'000), begin + 1501ms, Outcome::picture);
    const auto second = statistics.takeInterval(begin + 2s);
    EXPECT_EQ(second.frames, 1u);
    EXPECT_DOUBLE_EQ(second.megabitsPerSecond, 1);
    EXPECT_EQ(second.latencyMedian, 1);
    const auto third = statistics.takeInterval(begin + 3s);
    EXPECT_EQ(third.frames, 0u);
    EXPECT_FALSE(third.latencyMedian);
    EXPECT_EQ(statistics.total(begin + 3s).frames, 11u);
}

TEST(Percentile, isTheSmallestValueThatIsNotBelowItsPart) {
    EXPECT_FALSE(percentile({}, 0.5));
    EXPECT_EQ(median({3}), 3);
    EXPECT_EQ(median({4, 1, 3, 2}), 2);
    EXPECT_EQ(percentile({5, 1, 4, 2, 3}, 0), 1);
    EXPECT_EQ(percentile({5, 1, 4, 2, 3}, 1), 5);
    EXPECT_EQ(percentile({5, 1, 4, 2, 3}, 0.81), 5);
}

TEST(WatchStatistics, soundIsCountedByItsNumbers) {
    WatchStatistics statistics(begin, true);
    statistics.add(frameOf(begin), begin, Outcome::picture);
    for (const std::uint32_t sequence : {0xFFFFFFFEu, 0xFFFFFFFFu, 2u, 3u, 7u, 1u, 2u})
        statistics.add(AudioPacket{sequence, Bytes(125)});
    const auto total = statistics.total(begin + 1s);
    EXPECT_EQ(total.audioPackets, 7u);
    EXPECT_EQ(total.audioLost, 5u) << "0 and 1, 4 to 6; a step back is another row";
    EXPECT_DOUBLE_EQ(total.audioKilobitsPerSecond, 7);
}

}  // namespace

}  // namespace orvel::phone
