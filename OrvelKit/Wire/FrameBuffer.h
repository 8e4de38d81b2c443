#pragma once

#include <memory>
#include <span>

#include "OrvelKit/Wire/Frame.h"

namespace orvel {

struct Control;

// A frame on its way out, in one buffer: room in front for the headers of the frame and of the
// sealed frame around it, the payload, room behind for the tag. The payload is written once, then
// SecureSession::sealFrame seals it where it lies. Movable, not copyable.
class FrameBuffer {
public:
    static constexpr std::size_t headroom = 2 * Frame::headerLength;
    static constexpr std::size_t tailroom = 16;  // Poly1305 tag
    // The longest payload that still fits into a sealed frame.
    static constexpr std::size_t longestSealed = Frame::maxPayload - Frame::headerLength - tailroom;

    // Room for exactly `payloadLength` bytes of payload, uninitialised: the caller writes them
    // all. A length beyond 32 bits stops the process.
    FrameBuffer(FrameKind kind, std::size_t payloadLength);
    FrameBuffer(FrameKind kind, ByteView payload);
    static FrameBuffer control(const Control& control);

    FrameKind kind() const { return frameKind; }
    std::uint8_t* payload() { return storage.get() + headroom; }
    ByteView payload() const { return {storage.get() + headroom, length}; }
    std::size_t payloadLength() const { return length; }

    // Header and payload, unsealed.
    ByteView frame() const {
        return {storage.get() + Frame::headerLength, Frame::headerLength + length};
    }
    // The whole allocation, for who seals: outer header (unwritten), inner header, payload, tag
    // (unwritten).
    std::span<std::uint8_t> whole() { return {storage.get(), headroom + length + tailroom}; }

private:
    FrameKind frameKind;
    std::size_t length;
    std::unique_ptr<std::uint8_t[]> storage;
};

}  // namespace orvel
