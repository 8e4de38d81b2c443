#pragma once

#include <array>
#include <optional>
#include <vector>

#include "OrvelKit/Wire/Frame.h"

namespace orvel {

// Cuts a received byte stream into frames. One per stream, fed from its receive path only; no
// locking of its own. After a throw the parser is spent: the owner ends the connection.
//
// An announced length is not believed before its bytes arrive: memory follows what has been
// received, rounded up to 1 MiB at most.
class FrameParser {
public:
    // What a header may announce just now. Judged as soon as the header is complete: an unknown
    // kind first, then `onlyKind` (reported as unknownKind too), then the length.
    struct Limits {
        std::optional<FrameKind> onlyKind;
        std::size_t maxPayload = Frame::maxPayload;
    };

    // Returns every frame completed by `chunk`, in arrival order; often none. Throws
    // FramingError; then no frame of this call is returned.
    std::vector<Frame> feed(ByteView chunk);

    // The same one frame at a time, for a stream whose limits change with what it has carried:
    // takes bytes off the front of `input` until one frame is complete, and returns it, or
    // nullopt when `input` is used up. Every byte is copied once, into the payload returned;
    // payloads above 1 MiB that arrive in pieces are copied again when they outgrow their buffer,
    // at most once more on the average.
    std::optional<Frame> next(ByteView& input, const Limits& limits);

private:
    void judge(const Limits& limits);

    std::array<std::uint8_t, Frame::headerLength> header{};
    std::size_t headerBytes = 0;  // received of the header
    bool judged = false;          // the header is complete and within the limits
    std::size_t wanted = 0;       // payload bytes that the judged header announced
    Bytes payload;                // received so far
};

}  // namespace orvel
