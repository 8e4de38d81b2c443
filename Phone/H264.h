#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "OrvelKit/Wire/Media.h"

namespace orvel::phone {

// The little of H.264 that has to be known without a decoder. All of it comes from outside:
// whatever does not add up is nullopt or empty.

// From a sequence parameter set (its NAL unit, header included).
struct SequenceParameters {
    int width = 0, height = 0;     // of the picture shown, pixels
    unsigned frameNumberBits = 4;  // length of frame_num in slice headers
    bool operator==(const SequenceParameters&) const = default;

    static std::optional<SequenceParameters> parse(ByteView nalUnit);
};

// The parameter sets as ISO 14496-15 puts them before a stream with 4-byte lengths: what decoders
// and .mp4 files want. Empty without a sequence and a picture parameter set.
Bytes avcConfiguration(const VideoFormat& format);

// One picture in the form of an agent's frames, from a byte stream (ITU-T H.264, annex B).
struct AccessUnit {
    std::vector<Bytes> parameterSets;  // the sequence parameter sets first; empty: none came along
    Bytes data;                        // the other NAL units, each behind its 4-byte length

    // Whatever does not begin with a start code is left out up to the first one.
    static AccessUnit fromByteStream(ByteView bytes);
};

// Watches the numbers that reference pictures carry. An agent never sends a picture whose
// reference it has left out, so a gap is a fault.
class FrameNumbers {
public:
    void start(const SequenceParameters& parameters);
    // False: pictures that this one refers to are missing. True when it cannot be told.
    bool follows(const VideoFrame& frame);

private:
    unsigned bits = 0;  // 0: unknown
    std::optional<std::uint32_t> previous;
};

}  // namespace orvel::phone
