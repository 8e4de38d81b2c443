#include "Fuzz/Fuzz.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Files.h"
#include "OrvelKit/Wire/Media.h"

// The first byte chooses the decoder by frame kind, the others are the payload.

namespace orvel {
namespace {

template <class Payload>
void check(ByteView bytes) {
    std::optional<Payload> first;
    try {
        first = Payload::decode(bytes);
    } catch (const FramingError& error) {
        claim(error == FramingError::malformed(), "payload decoders say malformed");
        return;
    } catch (const ControlError&) {
        return;
    }
    const FrameBuffer encoded = first->encode();
    claim(Payload::decode(encoded.payload()) == *first, "a payload survives its bytes");
}

}  // namespace
}  // namespace orvel

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvel;
    if (size == 0) return 0;
    const ByteView payload(data + 1, size - 1);
    switch (FrameKind{data[0]}) {
        case FrameKind::videoFormat:
            check<VideoFormat>(payload);
            break;
        case FrameKind::videoFrame:
            check<VideoFrame>(payload);
            break;
        case FrameKind::audio:
            check<AudioPacket>(payload);
            break;
        case FrameKind::file:
            check<FileFrame>(payload);
            break;
        default:
            break;
    }
    return 0;
}
