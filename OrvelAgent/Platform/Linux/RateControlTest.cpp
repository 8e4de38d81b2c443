#include "OrvelAgent/Platform/Linux/RateControl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvel {
namespace {

constexpr int blockCount = 8160;
constexpr double bitrate = 6'000'000;

// Stands for encoder and content: a picture takes `complexity` bits for each unit of energy at
// QP 26, and half of that with each `qpPerHalving` more; one that is finer than the picture before
// takes more, as encoders do.
class Simulation {
public:
    Simulation() {
        rate.setBitrate(static_cast<std::int64_t>(bitrate));
        keyframe();
    }

    struct Picture {
        double bits;
        int qp;
        bool skipped;
    };

    Picture keyframe(double energy = 4 * blockCount) {
        RateControl::Load load;
        load.isKeyframe = true;
        load.energy = energy;
        load.changedBlocks = blockCount;
        return code(load, 30);
    }
    Picture picture(double energy = 2 * blockCount) {
        RateControl::Load load;
        load.energy = energy;
        load.changedBlocks = blockCount;
        return code(load, complexity);
    }
    std::vector<Picture> motion(double seconds, double energy = 2 * blockCount) {
        std::vector<Picture> pictures;
        for (double end = time + seconds; time < end - 1e-6;) {
            pictures.push_back(picture(energy));
            time += 1 / framesPerSecond;
        }
        return pictures;
    }

    double complexity = 10, qpPerHalving = 6, framesPerSecond = 60;
    double time = 1000;
    RateControl rate{blockCount};

private:
    Picture code(const RateControl::Load& load, double bitsPerEnergy) {
        rate.advance(MonotonicTime(std::chrono::microseconds(std::llround(time * 1e6))));
        if (rate.mustSkip(load)) return {0, 0, true};
        const int qp = rate.chooseQp(load);
        double bits = 400 + bitsPerEnergy * load.energy * std::exp2((26 - qp) / qpPerHalving);
        if (!load.isKeyframe && qp < before) bits *= std::pow(1.5, before - qp);
        before = qp;
        rate.account(load, qp, std::llround(bits));
        return {bits, qp, false};
    }
    int before = RateControl::firstQp;
};

double megabitsPerSecond(const std::vector<Simulation::Picture>& pictures, double framesPerSecond) {
    double bits = 0;
    for (const auto& picture : pictures)
        bits += picture.bits;
    return bits * framesPerSecond / static_cast<double>(pictures.size()) / 1e6;
}

struct ContentRow {
    const char* name;
    double complexity;  // bits for each unit of energy at QP 26
    double qpPerHalving;
    double framesPerSecond;
};
const ContentRow contentRows[] = {
    {"a usual film", 10, 6, 60},         {"a calm one", 4, 6, 60},
    {"a restless one", 40, 6, 60},       {"bits react steeply", 10, 3, 60},
    {"bits hardly react", 15, 14, 60},   {"30 pictures a second", 20, 6, 30},
    {"10 pictures a second", 60, 6, 10},
};

TEST(RateControl, holdsTheAverageWhateverMoves) {
    for (const auto& row : contentRows) {
        SCOPED_TRACE(row.name);
        Simulation simulation;
        simulation.complexity = row.complexity;
        simulation.qpPerHalving = row.qpPerHalving;
        simulation.framesPerSecond = row.framesPerSecond;
        simulation.motion(1.5);
        EXPECT_NEAR(megabitsPerSecond(simulation.motion(4), row.framesPerSecond), 6, 0.6);
    }
}

TEST(RateControl, theFirstSecondsOfMotionStayNearTheAverageToo) {
    for (const auto& row : contentRows) {
        SCOPED_TRACE(row.name);
        Simulation simulation;
        simulation.complexity = row.complexity;
        simulation.qpPerHalving = row.qpPerHalving;
        simulation.framesPerSecond = row.framesPerSecond;
        simulation.time += 5;
        EXPECT_NEAR(megabitsPerSecond(simulation.motion(4), row.framesPerSecond), 6, 1.5);
    }
}

TEST(RateControl, keyframesInMotionArePaidForLater) {
    Simulation simulation;
    simulation.motion(1.5);
    double bits = 0;
    for (int i = 0; i < 2; ++i) {
        bits += simulation.keyframe().bits;
        for (const auto& picture : simulation.motion(4))
            bits += picture.bits;
    }
    EXPECT_NEAR(bits / 8 / 1e6, 6, 0.6);
}

TEST(RateControl, theQuantizerGlidesInMotion) {
    Simulation simulation;
    simulation.motion(1.5);
    const auto pictures = simulation.motion(4);
    for (std::size_t i = 1; i < pictures.size(); ++i)
        EXPECT_LE(std::abs(pictures[i].qp - pictures[i - 1].qp), 1) << i;
}

TEST(RateControl, fourTimesTheContentIsMasteredWithinASecond) {
    Simulation simulation;
    simulation.motion(2);
    simulation.complexity *= 4;
    const auto first = simulation.motion(1);
    EXPECT_LT(megabitsPerSecond(first, 60), 2 * 6);
    EXPECT_NEAR(megabitsPerSecond(simulation.motion(3), 60), 6, 0.9);
    simulation.complexity /= 4;
    simulation.motion(1);
    EXPECT_NEAR(megabitsPerSecond(simulation.motion(3), 60), 6, 0.6);
}

TEST(RateControl, aSingleChangeAfterARestIsFineAtOnceButNoFlood) {
    Simulation simulation;
    simulation.complexity = 21;  // as much as new content is expected to take
    simulation.time += 5;
    const auto small = simulation.picture(0.01 * blockCount);
    EXPECT_EQ(small.qp, RateControl::finestQp);
    simulation.time += 5;
    const auto large = simulation.picture(4 * blockCount);
    EXPECT_LE(large.qp, 32);
    EXPECT_LT(large.bits, 0.25 * bitrate);
}

TEST(RateControl, keyframesGetMoreThanOtherPicturesAndLessThanHalfASecond) {
    Simulation simulation;
    simulation.time += 5;
    for (double energy : {1.0, 4.0, 20.0, 70.0}) {
        SCOPED_TRACE(energy);
        simulation.time += 5;
        simulation.keyframe(energy * blockCount);  // what it learns from
        simulation.time += 5;
        const auto second = simulation.keyframe(energy * blockCount);
        EXPECT_LT(second.bits, 0.55 * bitrate);
        EXPECT_GE(second.qp, RateControl::finestQp);
    }
}

TEST(RateControl, unchangedBlocksAreImprovedAsFarAsThereIsRoom) {
    Simulation simulation;
    simulation.time += 5;
    RateControl::Load load;
    load.changedBlocks = 2;
    load.energy = 8;
    load.unchangedByQp[40] = blockCount - 2;  // coarse all over
    simulation.rate.advance(MonotonicTime(std::chrono::seconds(1005)));
    const int qp = simulation.rate.chooseQp(load);
    EXPECT_LT(qp, 40);
    EXPECT_GT(qp, RateControl::finestQp) << "not all at once";
    load.unchangedByQp = {};
    load.unchangedByQp[RateControl::finestQp] = blockCount - 2;
    EXPECT_EQ(simulation.rate.chooseQp(load), RateControl::finestQp);
}

TEST(RateControl, whatNoQuantizerCanHoldIsLeftOutAndForgottenSoon) {
    Simulation simulation;
    simulation.rate.setCoarsestQp(43);
    simulation.complexity = 2000;
    const auto noise = simulation.motion(3, 70 * blockCount);
    EXPECT_TRUE(std::any_of(noise.begin(), noise.end(), [](auto& each) { return each.skipped; }));
    EXPECT_TRUE(std::all_of(noise.begin(), noise.end(), [](auto& each) { return each.qp <= 43; }));
    EXPECT_LE(simulation.rate.waitingSeconds(), 1.5);
    EXPECT_FALSE(simulation.keyframe().skipped) << "keyframes never";
    simulation.complexity = 10;
    simulation.time += 0.6;
    EXPECT_FALSE(simulation.picture().skipped);
}

TEST(RateControl, aSmallChangeIsNotLeftOut) {
    Simulation simulation;
    simulation.complexity = 2000;
    simulation.motion(1, 70 * blockCount);
    ASSERT_GT(simulation.rate.waitingSeconds(), 1);
    simulation.complexity = 10;
    EXPECT_FALSE(simulation.picture(4).skipped);
}

TEST(RateControl, aNewBitrateIsKeptFromThereOn) {
    Simulation simulation;
    simulation.motion(2);
    simulation.rate.setBitrate(2'000'000);
    simulation.motion(1);
    EXPECT_NEAR(megabitsPerSecond(simulation.motion(4), 60), 2, 0.2);
    simulation.rate.setBitrate(12'000'000);
    simulation.motion(1);
    EXPECT_NEAR(megabitsPerSecond(simulation.motion(4), 60), 12, 1.2);
}

TEST(RateControl, aStreamWhoseTimesStandStillGoesOn) {
    Simulation simulation;
    simulation.motion(1);
    const double stopped = simulation.time;
    for (int i = 0; i < 300; ++i) {
        simulation.time = i % 2 == 0 ? stopped : stopped - 3;
        ASSERT_FALSE(simulation.picture().skipped) << i;
    }
    EXPECT_LT(simulation.rate.waitingSeconds(), 0.5);
}

}  // namespace
}  // namespace orvel
