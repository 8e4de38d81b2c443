#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// One H.264 compression session: properties, one picture in, one sample out. Used from one queue
// at a time; the output handler may be called on any thread, before encode() returns or later,
// but in the order of the pictures and not after invalidate() has returned.
class CompressionSession {
public:
    enum class Property {
        realTime,                     // bool
        profileLevel,                 // string: "H264_ConstrainedHigh_AutoLevel",
                                      // "H264_ConstrainedBaseline_AutoLevel"
        allowFrameReordering,         // bool
        averageBitRate,               // integer, bits per second; may change at any time
        expectedFrameRate,            // integer, frames per second
        maxKeyFrameIntervalDuration,  // integer, seconds
        quality                       // double, 0 to 1; may change at any time; unset at start
    };
    using Value = std::variant<bool, std::int64_t, double, std::string>;

    struct Sample {
        std::int32_t status = 0;                // 0: good
        bool notSync = false;                   // true: needs earlier pictures to be decoded
        std::optional<std::int64_t> ptsMicros;  // nullopt: invalid
        ByteView data;                          // NAL units behind 4-byte lengths; empty: none
        std::vector<ByteView> parameterSets;    // SPS, then PPS, when the sample starts anew
        // All views die with the call of the handler.
    };
    using OutputHandler = std::function<void(const Sample&)>;

    virtual ~CompressionSession() = default;
    // 0, or the system's status: a property that it does not know or accept changes nothing.
    virtual std::int32_t set(Property property, const Value& value) = 0;
    virtual std::int32_t prepare() = 0;
    virtual std::int32_t encode(std::shared_ptr<const PixelBuffer> image, MonotonicTime time,
                                bool forceKeyframe, OutputHandler handler) = 0;
    // Returns when every picture given so far has come out.
    virtual void completeFrames() = 0;
    // Ends the session; what has not come out yet is dropped.
    virtual void invalidate() = 0;

    struct Specification {
        int width = 0, height = 0;  // pixels, even
        bool lowLatencyRateControl = false;
    };
    struct Created {
        std::unique_ptr<CompressionSession> session;  // null: it failed with `status`
        std::int32_t status = 0;
    };
    using Factory = std::function<Created(const Specification&)>;
    static Created create(const Specification& specification);  // this system's
};

}  // namespace orvel
