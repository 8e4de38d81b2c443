#include "Phone/LatencyMeasurement.h"

#include <gmock/gmock.h>

#include "Phone/VideoDecoder.h"
#include "Phone/VideoForTests.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;

// A screen with the square on it, an agent and a phone, in a time that only this test moves.
struct Screen {
    static constexpr int width = 160, height = 120;

    LatencyMeasurement::Show show() {
        return [this](bool white) -> std::optional<MonotonicTime> {
            if (isGone) return std::nullopt;
            isWhite = white;
            return now;
        };
    }
    // The picture of now, decoded `delay` later.
    void deliver(LatencyMeasurement& measurement, Duration delay) {
        const bool left = showsSquare && isWhite, right = flickers && ++pictures / 2 % 2 == 1;
        const auto frame = video.frame(
            [&](int x, int y) {
                const bool inSquare = x >= 100 && x < 121 && y >= 60 && y < 81;
                const bool inOther = x < 40 && y < 40;
                const bool isBright = (inSquare && left) || (inOther && right);
                return VideoForTests::Colour{static_cast<std::uint8_t>(isBright ? 235 : 16), 128,
                                             128};
            },
            first, 0);
        first = false;
        ASSERT_TRUE(decoder.setFormat(video.format));
        ASSERT_EQ(decoder.decode(frame), VideoDecoder::Outcome::picture);
        now += delay;
        measurement.look(decoder, now);
    }
    // Lets time pass up to the next step and takes it.
    void step(LatencyMeasurement& measurement) {
        now = std::max(now, measurement.nextStep());
        measurement.step(now);
    }

    VideoForTests video{width, height};
    VideoDecoder decoder;
    MonotonicTime now{std::chrono::hours(1)};
    bool isWhite = false, isGone = false, showsSquare = true, flickers = false, first = true;
    int pictures = 0;
};

TEST(LatencyMeasurement, findsTheSquareAndMeasuresEachSwitch) {
    Screen screen;
    screen.flickers = true;  // something else changes, too, but not with the square
    LatencyMeasurement measurement(screen.show(), 20, 1);
    for (int i = 0; i < 100 && !measurement.isDone(); ++i) {
        screen.step(measurement);
        screen.deliver(measurement, 12ms);
    }
    EXPECT_TRUE(measurement.isDone());
    EXPECT_EQ(measurement.problem(), "");
    EXPECT_THAT(measurement.samples(), SizeIs(20));
    EXPECT_THAT(measurement.samples(), Each(12));
    EXPECT_EQ(measurement.lost(), 0u);
}

TEST(LatencyMeasurement, aPictureWithoutTheSwitchIsNotTakenForIt) {
    Screen screen;
    LatencyMeasurement measurement(screen.show(), 1, 1);
    while (measurement.samples().empty() && !measurement.isDone()) {
        const bool before = screen.isWhite;
        screen.step(measurement);
        if (before == screen.isWhite) continue;
        screen.isWhite = before;  // the agent took this picture before
        screen.deliver(measurement, 10ms);
        EXPECT_TRUE(measurement.samples().empty());
        screen.isWhite = !before;
        screen.deliver(measurement, 15ms);
    }
    EXPECT_THAT(measurement.samples(), Each(25));
}

TEST(LatencyMeasurement, aSwitchThatIsNeverSeenIsLost) {
    Screen screen;
    LatencyMeasurement measurement(screen.show(), 5, 1);
    while (measurement.samples().empty() && !measurement.isDone()) {
        screen.step(measurement);
        screen.deliver(measurement, 10ms);
    }
    while (!measurement.isDone())
        screen.step(measurement);
    EXPECT_EQ(measurement.problem(), "");
    EXPECT_THAT(measurement.samples(), SizeIs(1));
    EXPECT_EQ(measurement.lost(), 4u);
}

TEST(LatencyMeasurement, whatMakesItImpossibleIsSaid) {
    {
        Screen screen;
        screen.showsSquare = false;
        screen.flickers = true;
        LatencyMeasurement measurement(screen.show(), 5, 1);
        for (int i = 0; i < 100 && !measurement.isDone(); ++i) {
            screen.step(measurement);
            screen.deliver(measurement, 10ms);
        }
        EXPECT_THAT(measurement.problem(), HasSubstr("not in the picture"));
    }
    {
        Screen screen;
        LatencyMeasurement measurement(screen.show(), 5, 1);
        for (int i = 0; i < 100 && !measurement.isDone(); ++i)
            screen.step(measurement);
        EXPECT_THAT(measurement.problem(), HasSubstr("stands still"));
    }
    {
        Screen screen;
        screen.isGone = true;
        LatencyMeasurement measurement(screen.show(), 5, 1);
        screen.step(measurement);
        EXPECT_TRUE(measurement.isDone());
        EXPECT_NE(measurement.problem(), "");
    }
}

}  // namespace

}  // namespace orvel::phone
