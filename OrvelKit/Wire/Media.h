#pragma once

#include <cstdint>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {

// Payloads of the media frames. `decode` takes a frame's payload and throws
// FramingError::malformed; the buffers that `encode` returns are whole frames, ready to be sealed.

// The parameter sets that a decoder needs before the next keyframe; for H.264 the sequence
// parameter set first. At most 255 sets of at most 65,535 bytes: more stops the process.
struct VideoFormat {
    std::vector<Bytes> parameterSets;
    bool operator==(const VideoFormat&) const = default;

    FrameBuffer encode() const;
    static VideoFormat decode(ByteView payload);  // bytes after the last announced set are ignored
};

// One access unit: NAL units, each behind a 4-byte big-endian length, without parameter sets.
struct VideoFrame {
    static constexpr std::size_t headerLength = 9;
    bool isKeyframe = false;
    std::uint64_t ptsMicros = 0;  // host clock of the agent, microseconds
    Bytes data;                   // may be empty
    bool operator==(const VideoFrame&) const = default;

    FrameBuffer encode() const { return encode(isKeyframe, ptsMicros, data); }
    // Straight from the encoder's memory: the one copy on the way to the socket.
    static FrameBuffer encode(bool isKeyframe, std::uint64_t ptsMicros, ByteView data);
    static VideoFrame decode(ByteView payload);
};

// One Opus packet.
struct AudioPacket {
    static constexpr std::size_t headerLength = 4;
    std::uint32_t sequence = 0;
    Bytes opus;  // at least one byte: unlike an empty picture, an empty packet is refused
    bool operator==(const AudioPacket&) const = default;

    FrameBuffer encode() const;
    static AudioPacket decode(ByteView payload);
};

}  // namespace orvel
