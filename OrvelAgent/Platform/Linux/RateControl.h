#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "OrvelAgent/Platform/Linux/BlockMap.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Chooses the quantizer (QP) of each picture so that the stream keeps an average bitrate while
// something moves, and a picture that changes now and then is coded finely at once.
//
// A bucket fills with the bits sent and empties at the bitrate. A picture after a rest, or one
// with much more to code than those before, may take a good part of what is missing to
// `burstSeconds`; what it will take is predicted from its energy. In motion the quantizer follows
// the smoothed size of the pictures slowly: a picture finer than the one it refers to takes far
// more bits than one that is not, so that correcting each picture for the one before would
// oscillate.
//
// Plain state of one session; all times are those of the pictures.
class RateControl {
public:
    static constexpr int finestQp = 20;
    static constexpr int firstQp = 26;

    // What is known of a picture before it is coded.
    struct Load {
        bool isKeyframe = false;
        double energy = 0;      // of what changed; keyframes: of everything
        int changedBlocks = 0;  // keyframes: all
        std::array<int, BlockMap::maxQp + 1> unchangedByQp{};
    };

    explicit RateControl(int blockCount) : blocks(blockCount) {}

    void setBitrate(std::int64_t bitsPerSecond);  // at least 1
    void setFrameInterval(double seconds);        // expected at first
    // No picture is coded more coarsely. What then takes too many bits is left out.
    void setCoarsestQp(int qp);

    // A picture of this time comes. One whose time does not lie behind all others, an old picture
    // once more or one of unknown time, counts as coming at the usual interval.
    void advance(MonotonicTime time);
    // So much waits that this picture is better left out.
    bool mustSkip(const Load& load) const;
    int chooseQp(const Load& load);
    void account(const Load& load, int qp, std::int64_t bits);
    // A picture of a given quantizer, outside the budget: only the prediction learns from it.
    void learn(const Load& load, int qp, std::int64_t bits);

    double waitingSeconds() const { return level / bitrate; }

private:
    double spareBits() const;
    double predict(const Load& load, int qp) const;
    double changeBits(const Load& load, int qp) const;
    double refinementBits(const Load& load, int qp) const;
    int fittingQp(const Load& load, double allowed) const;
    bool beginsAnew(const Load& load) const;
    int keyframeQp(const Load& load) const;
    void follow();

    const int blocks;
    double bitrate = 1;          // bits per second
    double interval = 1.0 / 60;  // seconds between pictures in motion
    int coarsest = BlockMap::maxQp;

    std::optional<MonotonicTime> now;
    double sinceLast = 0;  // seconds between the last two pictures
    double level = 0;      // of the bucket, bits

    // In motion.
    double steadyQp = firstQp;
    int lastQp = firstQp;   // of no keyframe
    int settling = 0;       // pictures for which the quantizer may still move fast
    double recentBits = 0;  // a picture, smoothed
    double recentEnergy = 0;

    // Bits for each unit of energy at QP 26.
    double keyframeBits = 30, motionBits = 21;
    double refinement = 1;      // correction of refinementBits()
    double keyframeEnergy = 0;  // of the last keyframe
};

}  // namespace orvel
