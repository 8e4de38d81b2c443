#pragma once

#include <cstdint>
#include <exception>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

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

// What travels: kind (1 byte), payload length (4 bytes, the header not counted), payload.
struct Frame {
    static constexpr std::size_t headerLength = 5;
    static constexpr std::size_t maxPayload = 16'777'216;  // accepted; one byte more is not

    FrameKind kind;
    Bytes payload;
    bool operator==(const Frame&) const = default;
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

}  // namespace orvel
