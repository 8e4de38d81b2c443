#pragma once

#include <memory>

#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelAgent/Platform/Linux/BlockMap.h"
#include "OrvelAgent/Platform/Linux/RateControl.h"

extern "C" {
struct x264_t;
}

namespace orvel {

// H.264 by x264: no B-frames, no delay, one or more slices a picture. The handler is called before
// encode() returns, on the same thread; completeFrames() therefore has nothing to wait for.
//
// Only what PixelBuffer::changed covers is coded; unchanged blocks are copied from the picture
// before, and coded again only to make them finer. Between keyframes the quantizer (QP, 0 to 51,
// smaller is finer) is RateControl's. What the properties mean here:
//  - quality 1: QP 16, whatever it takes, and outside the bitrate; at 6 times the bitrate x264's
//    own rate control would stay far coarser. Below 1: no picture is coarser than
//    51 - 35 · quality³ (0.6: QP 43); unset: QP 51. When even that takes too much, pictures are
//    left out: their sample is empty, with status 0.
//  - maxKeyFrameIntervalDuration: measured with the times of the pictures.
//  - profileLevel: Constrained High unless Constrained Baseline is asked for before the first
//    picture.
//  - realTime, expectedFrameRate: hints. allowFrameReordering accepts only what the session does
//    anyway.
class X264CompressionSession : public CompressionSession {
public:
    static constexpr int sharpQp = 16;

    // Statuses; 0 is good.
    static constexpr std::int32_t invalidSession = -1;   // after invalidate()
    static constexpr std::int32_t invalidArgument = -2;  // a size, a value, a picture
    static constexpr std::int32_t unsupported = -3;      // a property it cannot have
    static constexpr std::int32_t encoderFailure = -4;   // x264 refused

    struct Options {
        int slices = 1;  // coded side by side, each by a thread of its own
    };
    static Created make(const Specification& specification, const Options& options);

    ~X264CompressionSession() override;
    std::int32_t set(Property property, const Value& value) override;
    std::int32_t prepare() override;
    std::int32_t encode(std::shared_ptr<const PixelBuffer> image, MonotonicTime time,
                        bool forceKeyframe, OutputHandler handler) override;
    void completeFrames() override {}
    void invalidate() override;

    // QP of the last picture that came out; for measurements.
    int lastQp() const { return codedQp; }

private:
    struct Closer {
        void operator()(x264_t* encoder) const;
    };
    using Encoder = std::unique_ptr<x264_t, Closer>;

    X264CompressionSession(const Specification& specification, const Options& options);
    bool open(bool asHigh);
    bool readParameterSets();
    std::int32_t setProfile(const Value& value);
    bool isKeyframeDue() const;
    void markChanges(const PixelBuffer& image);
    RateControl::Load loadOf(const PixelBuffer& image, bool isKeyframe) const;

    const int width, height, slices;
    Encoder encoder;
    bool isHigh = true;
    Bytes sps, pps;
    BlockMap blocks;
    RateControl rate;

    bool isSharp = false;  // quality 1
    Duration keyframeInterval = Duration::max();
    MonotonicTime latest = MonotonicTime::min();  // picture time so far
    MonotonicTime lastKeyframe;
    std::shared_ptr<const PixelBuffer> last;  // what the decoder shows, as it was given
    std::int64_t pictures = 0;
    int codedQp = 0;
};

}  // namespace orvel
