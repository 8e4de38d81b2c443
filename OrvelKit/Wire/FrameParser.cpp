#include "OrvelKit/Wire/FrameParser.h"

#include <algorithm>
#include <utility>

namespace orvel {

namespace {

constexpr std::size_t believedLength = 1 << 20;

bool isKind(std::uint8_t byte) {
    return byte >= static_cast<std::uint8_t>(FrameKind::control) &&
           byte <= static_cast<std::uint8_t>(FrameKind::audio);
}

ByteView takeFront(ByteView& input, std::size_t most) {
    const ByteView front = input.first(std::min(most, input.size()));
    input = input.subspan(front.size());
    return front;
}

}  // namespace

std::vector<Frame> FrameParser::feed(ByteView chunk) {
    std::vector<Frame> frames;
    while (auto frame = next(chunk, Limits{}))
        frames.push_back(*std::move(frame));
    return frames;
}

std::optional<Frame> FrameParser::next(ByteView& input, const Limits& limits) {
    const ByteView more = takeFront(input, header.size() - headerBytes);
    std::copy(more.begin(), more.end(), header.begin() + headerBytes);
    headerBytes += more.size();
    if (headerBytes < header.size()) return std::nullopt;
    if (!judged) judge(limits);

    const ByteView part = takeFront(input, wanted - payload.size());
    const std::size_t needed = payload.size() + part.size();
    if (needed > payload.capacity()) {
        payload.reserve(std::min(wanted, std::max(needed, 2 * payload.capacity())));
    }
    append(payload, part);
    if (payload.size() < wanted) return std::nullopt;

    headerBytes = 0;
    judged = false;
    return Frame{static_cast<FrameKind>(header[0]), std::exchange(payload, {})};
}

void FrameParser::judge(const Limits& limits) {
    const std::uint8_t kind = header[0];
    if (!isKind(kind)) throw FramingError::unknownKind(kind);
    if (limits.onlyKind && kind != static_cast<std::uint8_t>(*limits.onlyKind)) {
        throw FramingError::unknownKind(kind);
    }
    const std::size_t length = loadBE32(&header[1]);
    if (length > limits.maxPayload) {
        throw FramingError::tooLarge(static_cast<std::int64_t>(length));
    }
    wanted = length;
    payload.reserve(std::min(wanted, believedLength));
    judged = true;
}

}  // namespace orvel
