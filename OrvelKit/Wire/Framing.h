#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

struct Control;

// The first byte of every frame. 0 and 8 to 255 are no kinds.
enum class FrameKind : std::uint8_t {
    control = 1,      // JSON of one Control
    videoFormat = 2,  // VideoFormat
    videoFrame = 3,   // VideoFrame
    file = 4,         // FileFrame
    handshake = 5,    // one message of SecureHandshake
    sealed = 6,       // one sealed box of SecureSession
    audio = 7,        // AudioPacket
};

// What a receiver throws at bytes that are no frame, or no payload of their kind.
struct FramingError : std::exception {
    enum class Code { unknownKind, tooLarge, malformed } code;
    std::int64_t value;  // the offending kind byte, or the announced payload length; else 0

    static FramingError unknownKind(std::uint8_t kind) { return {Code::unknownKind, kind}; }
    static FramingError tooLarge(std::int64_t length) { return {Code::tooLarge, length}; }
    static FramingError malformed() { return {Code::malformed, 0}; }

    bool operator==(const FramingError& other) const {
        return code == other.code && value == other.value;
    }
    const char* what() const noexcept override;

private:
    FramingError(Code errorCode, std::int64_t errorValue) : code(errorCode), value(errorValue) {}
};

struct Frame {
    FrameKind kind;
    Bytes payload;
    bool operator==(const Frame&) const = default;
};

// A frame: kind (1 byte), payload length (4 bytes, the header not counted), payload.
struct Framing {
    static constexpr std::size_t headerLength = 5;
    static constexpr std::size_t maxPayload = 16'777'216;  // accepted; one byte more is not

    // Does not check maxPayload: only receivers enforce it. A payload beyond 32 bits stops the
    // process.
    static Bytes encode(FrameKind kind, ByteView payload);
    static Bytes encodeControl(const Control& control);
    // Throws ControlError (Control.h).
    static Control decodeControl(ByteView payload);

    static void storeHeader(std::uint8_t* to, FrameKind kind, std::size_t payloadLength);
    Framing() = delete;
};

// Cuts a received byte stream into frames. One per stream, fed from its receive path only; no
// locking of its own. After a throw the parser is spent: the owner ends the connection.
class FrameParser {
public:
    // What a header may announce just now. Judged as soon as the header is complete: an unknown
    // kind first, then `onlyKind` (reported as unknownKind too), then the length.
    struct Limits {
        std::optional<FrameKind> onlyKind;
        std::size_t maxPayload = Framing::maxPayload;
    };

    // Returns every frame completed by `chunk`, in arrival order; often none. Throws
    // FramingError; then no frame of this call is returned.
    std::vector<Frame> feed(ByteView chunk);

    // The same one frame at a time, for a stream whose limits change with what it has carried:
    // takes bytes off the front of `input` until one frame is complete, and returns it, or
    // nullopt when `input` is used up. Every byte is copied once, into the payload returned.
    std::optional<Frame> next(ByteView& input, const Limits& limits);

private:
    std::uint8_t header[Framing::headerLength] = {};
    std::size_t headerBytes = 0;  // received of the header; headerLength: it has been judged
    std::size_t wanted = 0;       // payload bytes that the header announced
    Bytes payload;                // received so far
};

// A frame on its way out, in one buffer: room in front for the headers of the frame and of the
// sealed frame around it, the payload, room behind for the tag. The payload is written once, then
// SecureSession::sealFrame seals it where it lies. Movable, not copyable.
class FrameBuffer {
public:
    static constexpr std::size_t headroom = 2 * Framing::headerLength;
    static constexpr std::size_t tailroom = 16;  // Poly1305 tag

    // Room for exactly `payloadLength` bytes of payload, all of which the caller writes.
    FrameBuffer(FrameKind kind, std::size_t payloadLength);
    FrameBuffer(FrameKind kind, ByteView payload);
    static FrameBuffer control(const Control& control);

    FrameKind kind() const { return frameKind; }
    std::uint8_t* payload() { return storage.get() + headroom; }
    ByteView payload() const { return {storage.get() + headroom, length}; }
    std::size_t payloadLength() const { return length; }

    // Header and payload, unsealed.
    ByteView frame() const {
        return {storage.get() + Framing::headerLength, Framing::headerLength + length};
    }
    // The whole allocation, for who seals: outer header, inner header, payload, tag.
    std::span<std::uint8_t> whole() { return {storage.get(), headroom + length + tailroom}; }

private:
    FrameKind frameKind;
    std::size_t length;
    std::unique_ptr<std::uint8_t[]> storage;
};

}  // namespace orvel
