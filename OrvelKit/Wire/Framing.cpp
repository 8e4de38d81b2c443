#include "OrvelKit/Wire/Framing.h"

#include <cstdlib>
#include <limits>

#include "OrvelKit/Wire/Control.h"

namespace orvel {

void Framing::storeHeader(std::uint8_t* to, FrameKind kind, std::size_t payloadLength) {
    if (payloadLength > std::numeric_limits<std::uint32_t>::max()) std::abort();
    to[0] = static_cast<std::uint8_t>(kind);
    storeBE32(to + 1, static_cast<std::uint32_t>(payloadLength));
}

Bytes Framing::encode(FrameKind kind, ByteView payload) {
    Bytes frame;
    frame.reserve(headerLength + payload.size());
    frame.resize(headerLength);
    storeHeader(frame.data(), kind, payload.size());
    append(frame, payload);
    return frame;
}

Bytes Framing::encodeControl(const Control& control) {
    return encode(FrameKind::control, bytesOf(control.toJson()));
}

Control Framing::decodeControl(ByteView payload) {
    return Control::fromJson(textOf(payload));
}

}  // namespace orvel
