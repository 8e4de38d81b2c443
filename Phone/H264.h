#pragma once

#include <cstdint>
#include <optional>

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
