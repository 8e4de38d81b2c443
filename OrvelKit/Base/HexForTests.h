#pragma once

#include <cstdlib>
#include <string_view>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// "01 00000002 7B7D" as bytes; spaces separate fields. Stops the test program at anything else.
inline Bytes hex(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF0123456789abcdef";
    Bytes bytes;
    int high = -1;
    for (const char c : text) {
        if (c == ' ') continue;
        const std::size_t found = digits.find(c);
        if (found == std::string_view::npos) std::abort();
        const int value = static_cast<int>(found % 16);
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    if (high >= 0) std::abort();
    return bytes;
}

inline std::string toHex(ByteView bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace orvel
