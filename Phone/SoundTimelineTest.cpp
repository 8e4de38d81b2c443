#include "Phone/SoundTimeline.h"

#include <gtest/gtest.h>

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

struct SoundTimelineTest : testing::Test {
    // A row of packets, `count` of them, each 20 ms after the one before.
    void play(int count, Duration arrival) {
        for (int i = 0; i < count; ++i)
            add(++sequence, arrival + i * 20ms);
    }
    void add(std::uint32_t number, Duration arrival) {
        const auto step = timeline.add(number, arrival);
        silence += step.silence;
        lost += step.lost;
        dropped += step.isDropped;
    }
    SoundTimeline timeline;
    std::uint32_t sequence = 0;
    std::size_t silence = 0, lost = 0, dropped = 0;
};

TEST_F(SoundTimelineTest, soundBeginsWhereItArrives) {
    play(50, 1010ms);
    EXPECT_EQ(silence, 50u);
    EXPECT_EQ(timeline.length(), 2s);
    EXPECT_EQ(timeline.silenceToEnd(3s), 50u);
    EXPECT_EQ(timeline.length(), 3s);
    EXPECT_EQ(timeline.silenceToEnd(3s), 0u);
}

TEST_F(SoundTimelineTest, lostPacketsKeepTheirTime) {
    play(50, 0s);
    sequence += 3;
    play(50, 1060ms);
    EXPECT_EQ(lost, 3u);
    EXPECT_EQ(silence, 0u);
    EXPECT_EQ(timeline.length(), 103 * 20ms);
}

TEST_F(SoundTimelineTest, otherNumbersAreNoLoss) {
    play(50, 0s);
    sequence += 1'000'000;
    play(50, 1s);
    sequence = 0;
    play(50, 2s);
    EXPECT_EQ(lost, 0u);
    EXPECT_EQ(timeline.length(), 3s);
}

TEST_F(SoundTimelineTest, aStallAndTheHurryAfterItChangeNothing) {
    play(50, 0s);
    for (int i = 0; i < 75; ++i)  // a second and a half, all at its end
        add(++sequence, 2500ms);
    play(50, 2500ms);
    EXPECT_EQ(silence + lost + dropped, 0u);
    EXPECT_EQ(timeline.length(), 175 * 20ms);
}

TEST_F(SoundTimelineTest, aPauseStaysAPause) {
    play(50, 0s);
    play(50, 11s);
    EXPECT_EQ(silence, 500u);
    EXPECT_EQ(timeline.length(), 12s);
    play(100, 12500ms);  // too short to tell from a stall at once
    EXPECT_EQ(silence, 525u);
    EXPECT_EQ(timeline.length(), 14500ms);
}

TEST_F(SoundTimelineTest, soundThatRunsAheadIsCut) {
    play(10, 500ms);  // these came late: a stall in the beginning
    play(100, 500ms);
    EXPECT_EQ(dropped, 10u);
    EXPECT_EQ(timeline.length(), 500ms + 100 * 20ms);
}

TEST_F(SoundTimelineTest, whereNothingComesThereIsSilence) {
    EXPECT_EQ(timeline.silenceUntil(2s), 0u);
    EXPECT_EQ(timeline.silenceUntil(2100ms), 55u);
    EXPECT_EQ(timeline.silenceUntil(3s), 0u);
    play(50, 3s);
    EXPECT_EQ(timeline.length(), 4s);
    EXPECT_EQ(timeline.silenceUntil(7s), 100u);
    play(50, 7s);
    EXPECT_EQ(silence, 95u) << "1.9 s before the first; the second row is a second late, for now";
    play(50, 8s);
    EXPECT_EQ(timeline.length(), 9s);
}

}  // namespace

}  // namespace orvel::phone
