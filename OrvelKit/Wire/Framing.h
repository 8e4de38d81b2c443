#pragma once

#include <cstdint>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Wire/Frame.h"
#include "OrvelKit/Wire/FrameBuffer.h"
#include "OrvelKit/Wire/FrameParser.h"

namespace orvel {

struct Control;

// The frame layer: encoding here and in FrameBuffer, decoding in FrameParser.
struct Framing {
    static constexpr std::size_t headerLength = Frame::headerLength;
    static constexpr std::size_t maxPayload = Frame::maxPayload;

    // Does not check maxPayload: only receivers enforce it. A payload beyond 32 bits stops the
    // process.
    static Bytes encode(FrameKind kind, ByteView payload);
    static Bytes encodeControl(const Control& control);
    // Throws ControlError (Control.h).
    static Control decodeControl(ByteView payload);

    static void storeHeader(std::uint8_t* to, FrameKind kind, std::size_t payloadLength);
    Framing() = delete;
};

}  // namespace orvel
