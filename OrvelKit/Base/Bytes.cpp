#include "OrvelKit/Base/Bytes.h"

#include <array>

namespace orvel {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeValues() {
    std::array<std::int8_t, 256> values{};
    for (auto& value : values)
        value = -1;
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        values[static_cast<std::uint8_t>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}
constexpr auto values = makeValues();

}  // namespace

std::string base64(ByteView bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t have = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = std::uint32_t{bytes[i]} << 16;
        if (have > 1) group |= std::uint32_t{bytes[i + 1]} << 8;
        if (have > 2) group |= bytes[i + 2];
        text += alphabet[group >> 18];
        text += alphabet[group >> 12 & 63];
        text += have > 1 ? alphabet[group >> 6 & 63] : '=';
        text += have > 2 ? alphabet[group & 63] : '=';
    }
    return text;
}

std::optional<Bytes> fromBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const std::size_t padding = !last ? 0 : text[i + 3] != '=' ? 0 : text[i + 2] != '=' ? 1 : 2;
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const int value = k < 4 - padding ? values[static_cast<std::uint8_t>(text[i + k])] : 0;
            if (value < 0) return std::nullopt;
            group = group << 6 | static_cast<std::uint32_t>(value);
        }
        const std::uint32_t unused = padding == 1   ? group & 0xFF
                                     : padding == 2 ? group & 0xFFFF
                                                    : 0;
        if (unused != 0) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        if (padding < 2) bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        if (padding < 1) bytes.push_back(static_cast<std::uint8_t>(group));
    }
    return bytes;
}

}  // namespace orvel
