#include "OrvelKit/Wire/FrameBuffer.h"

#include <algorithm>

#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {

FrameBuffer::FrameBuffer(FrameKind kind, std::size_t payloadLength)
    : frameKind(kind),
      length(payloadLength),
      storage(std::make_unique_for_overwrite<std::uint8_t[]>(headroom + payloadLength + tailroom)) {
    Framing::storeHeader(storage.get() + Frame::headerLength, kind, payloadLength);
}

FrameBuffer::FrameBuffer(FrameKind kind, ByteView payload) : FrameBuffer(kind, payload.size()) {
    std::copy(payload.begin(), payload.end(), storage.get() + headroom);
}

FrameBuffer FrameBuffer::control(const Control& control) {
    return FrameBuffer(FrameKind::control, bytesOf(control.toJson()));
}

}  // namespace orvel
