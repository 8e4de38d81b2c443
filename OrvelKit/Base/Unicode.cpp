#include "OrvelKit/Base/Unicode.h"

#include <cstdint>
#include <utility>

namespace orvel {

namespace {

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Of a whole, well-formed character.
char32_t codePoint(std::string_view character) {
    constexpr std::uint8_t leadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    char32_t value = static_cast<std::uint8_t>(character[0]) & leadBits[character.size()];
    for (const char byte : character.substr(1))
        value = value << 6 | (static_cast<std::uint8_t>(byte) & 0x3F);
    return value;
}

}  // namespace

std::size_t characterLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const auto continues = [&](std::size_t i, std::uint8_t low = 0x80, std::uint8_t high = 0xBF) {
        return i < text.size() && byte(i) >= low && byte(i) <= high;
    };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return continues(1) ? 2 : 0;
    // The second byte's range keeps out overlong forms, surrogates and what lies above U+10FFFF.
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool second = continues(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF);
        return second && continues(2) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool second = continues(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF);
        return second && continues(2) && continues(3) ? 4 : 0;
    }
    return 0;
}

std::u16string utf16From(std::string_view utf8) {
    std::u16string units;
    units.reserve(utf8.size());
    while (!utf8.empty()) {
        const std::size_t length = characterLength(utf8);
        if (length > 0) {
            const char32_t value = codePoint(utf8.substr(0, length));
            if (value < 0x10000) {
                units += static_cast<char16_t>(value);
            } else {
                units += static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10));
                units += static_cast<char16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
            }
        }
        utf8.remove_prefix(length > 0 ? length : 1);
    }
    return units;
}

std::u32string Utf16Joiner::join(std::u16string_view piece) {
    std::u32string characters;
    characters.reserve(piece.size());
    for (const char16_t unit : piece) {
        const char16_t before = std::exchange(high, 0);
        if (isHighSurrogate(unit)) {
            high = unit;
        } else if (!isLowSurrogate(unit)) {
            characters += unit;
        } else if (before) {
            characters +=
                static_cast<char32_t>(0x10000 + ((before - 0xD800) << 10) + (unit - 0xDC00));
        }
    }
    return characters;
}

}  // namespace orvel
