#include "OrvelKit/Wire/Files.h"

#include <algorithm>

#include "OrvelKit/Base/JsonForm.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

template <>
struct JsonForm<FileFrame::Start> {
    static void members(auto& json, auto& start) {
        json("name", start.name);
        json("size", start.size);
    }
};

template <>
struct JsonForm<FileFrame::End> {
    static void members(auto& json, auto& end) { json("error", end.error); }
};

namespace {

enum class Type : std::uint8_t { start = 1, data = 2, end = 3 };

constexpr std::size_t headerLength = FileFrame::dataHeaderLength;

FrameBuffer bufferFor(Type type, std::uint32_t id, std::size_t bodyLength) {
    FrameBuffer buffer(FrameKind::file, headerLength + bodyLength);
    buffer.payload()[0] = static_cast<std::uint8_t>(type);
    storeBE32(buffer.payload() + 1, id);
    return buffer;
}

FrameBuffer bufferWith(Type type, std::uint32_t id, ByteView body) {
    FrameBuffer buffer = bufferFor(type, id, body.size());
    std::copy(body.begin(), body.end(), buffer.payload() + headerLength);
    return buffer;
}

template <class Record>
Record decodeBody(ByteView body) {
    try {
        return decodeJson<Record>(textOf(body));
    } catch (const JsonError& error) {
        throw ControlError(error.what());
    }
}

}  // namespace

FrameBuffer FileFrame::encode() const {
    if (const auto* start = std::get_if<Start>(&step)) {
        return bufferWith(Type::start, id, bytesOf(encodeJson(*start)));
    }
    if (const auto* data = std::get_if<Data>(&step)) {
        return bufferWith(Type::data, id, data->bytes);
    }
    return bufferWith(Type::end, id, bytesOf(encodeJson(std::get<End>(step))));
}

FrameBuffer FileFrame::dataBuffer(std::uint32_t id, std::size_t length) {
    return bufferFor(Type::data, id, length);
}

FileFrame FileFrame::decode(ByteView payload) {
    if (payload.size() < headerLength) throw FramingError::malformed();
    const std::uint32_t id = loadBE32(&payload[1]);
    const ByteView body = payload.subspan(headerLength);
    switch (Type{payload[0]}) {
        case Type::start:
            return {id, decodeBody<Start>(body)};
        case Type::data:
            return {id, Data{Bytes(body.begin(), body.end())}};
        case Type::end:
            return {id, decodeBody<End>(body)};
    }
    throw FramingError::malformed();
}

}  // namespace orvel
