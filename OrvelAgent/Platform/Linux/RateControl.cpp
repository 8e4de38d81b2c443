#include "OrvelAgent/Platform/Linux/RateControl.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace orvel {

namespace {

constexpr double burstSeconds = 0.25;
constexpr double burstShare = 0.35;        // of what is left of it, on one picture
constexpr double motionShare = 0.1;        // the same in motion
constexpr double correctionSeconds = 1.0;  // to come back from above the burst
constexpr double leastShare = 0.6;         // of the bitrate, while coming back
constexpr double keyframeSeconds = 0.5, leastKeyframeSeconds = 0.25;  // budget of a keyframe

// Beyond the first, pictures are left out; beyond the second, what was sent is forgotten: the
// screen must not stand still for long because of a moment of noise.
constexpr double fullSeconds = 1.0, rememberedSeconds = 1.5;

constexpr double intervalSeconds = 0.2;  // over which the interval is smoothed
constexpr double restSeconds = 0.25;     // a picture after that begins something new
constexpr double surprise = 3;           // so does one of so many times the recent energy
constexpr double inheritedShare = 0.7;   // of a keyframe's bits: what new content takes
constexpr double forgetSeconds = 1.0;

constexpr double newShare = 3;  // of a picture's bits, for new content without any to spare

// How the quantizer follows the size of the pictures: at first, and then. At 60 pictures a second;
// with fewer it takes larger steps.
constexpr int settlingPictures = 8;
constexpr double settlingSmoothing = 0.5, smoothing = 0.15;  // weight of the newest picture
constexpr double settlingGain = 1.5, gain = 0.3;             // QP a picture for each factor of 2
constexpr double settlingStep = 3;                           // QP a picture, at most
constexpr double stepDown = 0.5, stepUp = 1, hurriedStepUp = 2;
constexpr double hurrySeconds = 0.5;
constexpr double hysteresis = 0.6;  // QP
constexpr int keyframeGain = 2;     // QP that a keyframe in motion is finer, at best
constexpr int keyframeLoss = 3;

constexpr double pictureOverhead = 400;  // bits, headers and skipped blocks
constexpr double leastBlockEnergy = 0.1;

// Bits against QP. Natural pictures halve every 5 to 7, text every 14; feedback does the rest.
constexpr double qpPerHalving = 10;
double coarseness(int qp) {
    return std::exp2((RateControl::firstQp - qp) / qpPerHalving);
}

}  // namespace

void RateControl::setBitrate(std::int64_t bitsPerSecond) {
    const double wanted = static_cast<double>(std::max<std::int64_t>(1, bitsPerSecond));
    level *= wanted / bitrate;  // what waits stays the same time
    bitrate = wanted;
}

void RateControl::setFrameInterval(double seconds) {
    interval = seconds;
}

void RateControl::setCoarsestQp(int qp) {
    coarsest = std::clamp(qp, finestQp, BlockMap::maxQp);
}

void RateControl::advance(MonotonicTime time) {
    if (!now) {
        now = time;
        sinceLast = restSeconds;
        return;
    }
    const bool advances = time > *now;
    sinceLast = advances ? std::chrono::duration<double>(time - *now).count() : interval;
    if (advances) now = time;
    level = std::max(0.0, level - bitrate * sinceLast);
    if (sinceLast < restSeconds) {
        interval += (1 - std::exp(-sinceLast / intervalSeconds)) * (sinceLast - interval);
    } else {
        // After a rest something else may move.
        const double kept = std::exp(-sinceLast / forgetSeconds);
        motionBits = std::pow(motionBits, kept) * std::pow(inheritedShare * keyframeBits, 1 - kept);
        recentEnergy *= kept;
    }
}

// What may be sent at once before the bucket holds `burstSeconds`; negative beyond.
double RateControl::spareBits() const {
    return burstSeconds * bitrate - level;
}

bool RateControl::beginsAnew(const Load& load) const {
    return sinceLast >= restSeconds || load.energy > surprise * recentEnergy;
}

bool RateControl::mustSkip(const Load& load) const {
    return !load.isKeyframe && level > fullSeconds * bitrate &&
           predict(load, coarsest) > bitrate * interval;
}

double RateControl::changeBits(const Load& load, int qp) const {
    const double energy = std::max(load.energy, leastBlockEnergy * load.changedBlocks);
    if (load.isKeyframe) return keyframeBits * energy * coarseness(qp);
    const bool isNew = beginsAnew(load);
    const double each = isNew ? std::max(motionBits, inheritedShare * keyframeBits) : motionBits;
    return each * energy * coarseness(qp);
}

// What improving the unchanged blocks takes: the difference between coding them with the one
// quantizer and with the other.
double RateControl::refinementBits(const Load& load, int qp) const {
    if (load.isKeyframe) return 0;
    double sum = 0;
    for (int coded = qp + 1; coded <= BlockMap::maxQp; ++coded)
        sum += load.unchangedByQp[coded] * (coarseness(qp) - coarseness(coded));
    return refinement * keyframeBits * keyframeEnergy / blocks * sum;
}

double RateControl::predict(const Load& load, int qp) const {
    return pictureOverhead + changeBits(load, qp) + refinementBits(load, qp);
}

int RateControl::fittingQp(const Load& load, double allowed) const {
    int qp = std::min(finestQp, coarsest);
    while (qp < coarsest && predict(load, qp) > allowed)
        ++qp;
    return qp;
}

int RateControl::keyframeQp(const Load& load) const {
    const double allowed =
        std::max(leastKeyframeSeconds * bitrate, keyframeSeconds * bitrate - level);
    const int qp = fittingQp(load, allowed);
    if (sinceLast >= restSeconds) return qp;
    // In motion it should not stand out.
    const int highest = std::min(lastQp + keyframeLoss, coarsest);
    if (qp > highest && predict(load, highest) < 2 * allowed) return highest;
    return std::max(qp, std::min(lastQp - keyframeGain, coarsest));
}

// Moves the steady quantizer towards the one with which a picture takes its share.
void RateControl::follow() {
    const double share = bitrate * interval, spare = spareBits();
    const double wanted =
        spare > 0 ? share + motionShare * spare
                  : share * std::max(leastShare, 1 + spare / (correctionSeconds * bitrate));
    const double doublings = std::log2(std::max(1.0, recentBits) / wanted);
    if (settling > 0) {
        --settling;
        steadyQp += std::clamp(settlingGain * doublings, -settlingStep, settlingStep);
    } else {
        const double up = level > hurrySeconds * bitrate ? hurriedStepUp : stepUp;
        const double pace = std::clamp(60 * interval, 1.0, 6.0);
        steadyQp += pace * std::clamp(gain * doublings, -stepDown, up);
    }
    steadyQp = std::clamp<double>(steadyQp, std::min(finestQp, coarsest), coarsest);
}

int RateControl::chooseQp(const Load& load) {
    if (load.isKeyframe) return keyframeQp(load);
    const double share = bitrate * interval;
    if (beginsAnew(load)) {
        const double allowed = std::max(newShare * share, share + burstShare * spareBits());
        steadyQp = fittingQp(load, allowed);
        recentBits = share;
        settling = settlingPictures;
    } else {
        follow();
    }
    // Rounded, but not back and forth.
    return std::abs(steadyQp - lastQp) <= hysteresis ? lastQp
                                                     : static_cast<int>(std::lround(steadyQp));
}

void RateControl::learn(const Load& load, int qp, std::int64_t bits) {
    const double took = std::max(1.0, static_cast<double>(bits) - pictureOverhead);
    const double change = changeBits(load, qp), refined = refinementBits(load, qp);
    const double ratio = std::clamp(took / std::max(1.0, change + refined), 0.05, 20.0);
    // Fast when it took more, slow when it took less.
    const double trust = ratio > 1 ? 0.7 : 0.3;
    if (load.isKeyframe) {
        keyframeBits = std::clamp(keyframeBits * std::pow(ratio, trust), 1.0, 1000.0);
        keyframeEnergy = load.energy;
        return;
    }
    const bool isNew = beginsAnew(load);
    const double changeShare = change / std::max(1.0, change + refined);
    if (isNew) motionBits = std::max(motionBits, inheritedShare * keyframeBits);
    if (change + refined > pictureOverhead) {
        motionBits = std::clamp(motionBits * std::pow(ratio, trust * changeShare), 0.05, 1000.0);
        refinement = std::clamp(refinement * std::pow(ratio, trust * (1 - changeShare)), 0.05, 5.0);
    }
    if (!isNew) {
        const double weight = settling > 0 ? settlingSmoothing : smoothing;
        recentBits += weight * (static_cast<double>(bits) - recentBits);
    }
    recentEnergy = std::max(load.energy, recentEnergy + 0.3 * (load.energy - recentEnergy));
}

void RateControl::account(const Load& load, int qp, std::int64_t bits) {
    learn(load, qp, bits);
    level = std::min(level + static_cast<double>(bits), rememberedSeconds * bitrate);
    if (!load.isKeyframe) lastQp = qp;
}

}  // namespace orvel
