#include "OrvelKit/Wire/Media.h"

#include <algorithm>
#include <cstdlib>

namespace orvel {

namespace {

// Takes `length` bytes off the front of `rest`.
ByteView take(ByteView& rest, std::size_t length) {
    if (rest.size() < length) throw FramingError::malformed();
    const ByteView front = rest.first(length);
    rest = rest.subspan(length);
    return front;
}

Bytes copyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace

FrameBuffer VideoFormat::encode() const {
    if (parameterSets.size() > 0xFF) std::abort();
    std::size_t length = 1;
    for (const Bytes& set : parameterSets) {
        if (set.size() > 0xFFFF) std::abort();
        length += 2 + set.size();
    }
    FrameBuffer buffer(FrameKind::videoFormat, length);
    std::uint8_t* to = buffer.payload();
    *to++ = static_cast<std::uint8_t>(parameterSets.size());
    for (const Bytes& set : parameterSets) {
        storeBE16(to, static_cast<std::uint16_t>(set.size()));
        to = std::copy(set.begin(), set.end(), to + 2);
    }
    return buffer;
}

VideoFormat VideoFormat::decode(ByteView payload) {
    const std::size_t count = take(payload, 1)[0];
    VideoFormat format;
    format.parameterSets.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t length = loadBE16(take(payload, 2).data());
        format.parameterSets.push_back(copyOf(take(payload, length)));
    }
    return format;
}

FrameBuffer VideoFrame::encode(bool isKeyframe, std::uint64_t ptsMicros, ByteView data) {
    FrameBuffer buffer(FrameKind::videoFrame, headerLength + data.size());
    buffer.payload()[0] = isKeyframe ? 1 : 0;
    storeBE64(buffer.payload() + 1, ptsMicros);
    std::copy(data.begin(), data.end(), buffer.payload() + headerLength);
    return buffer;
}

VideoFrame VideoFrame::decode(ByteView payload) {
    const ByteView header = take(payload, headerLength);
    return {(header[0] & 1) != 0, loadBE64(&header[1]), copyOf(payload)};
}

FrameBuffer AudioPacket::encode() const {
    FrameBuffer buffer(FrameKind::audio, headerLength + opus.size());
    storeBE32(buffer.payload(), sequence);
    std::copy(opus.begin(), opus.end(), buffer.payload() + headerLength);
    return buffer;
}

AudioPacket AudioPacket::decode(ByteView payload) {
    const ByteView header = take(payload, headerLength);
    if (payload.empty()) throw FramingError::malformed();
    return {loadBE32(header.data()), copyOf(payload)};
}

}  // namespace orvel
