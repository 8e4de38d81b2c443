#include "OrvelAgent/Desk/EscapedName.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "OrvelKit/Base/Unicode.h"

namespace orvel {

namespace {

// U+EF80 to U+EFBF are EE BE 80 to EE BE BF in UTF-8, U+EFC0 to U+EFFF are EE BF 80 to EE BF BF.
constexpr char firstByte = '\xEE', lowHalf = '\xBE', highHalf = '\xBF';

std::optional<char> escapedByte(std::string_view character) {
    if (character.size() != 3 || character[0] != firstByte) return std::nullopt;
    if (character[1] == lowHalf) return character[2];
    if (character[1] == highHalf) return static_cast<char>(character[2] | 0x40);
    return std::nullopt;
}

}  // namespace

std::string EscapedName::escape(std::string_view name) {
    std::string escaped;
    escaped.reserve(name.size());
    while (!name.empty()) {
        const std::size_t length = characterLength(name);
        const bool stays = length > 0 && !escapedByte(name.substr(0, length));
        if (stays) {
            escaped += name.substr(0, length);
            name.remove_prefix(length);
            continue;
        }
        const auto byte = static_cast<std::uint8_t>(name.front());  // 0x80 or more
        escaped += firstByte;
        escaped += byte < 0xC0 ? lowHalf : highHalf;
        escaped += static_cast<char>(0x80 | (byte & 0x3F));
        name.remove_prefix(1);
    }
    return escaped;
}

std::string EscapedName::unescape(std::string_view escaped) {
    std::string name;
    name.reserve(escaped.size());
    while (!escaped.empty()) {
        const std::size_t length = std::max<std::size_t>(characterLength(escaped), 1);
        const std::string_view character = escaped.substr(0, length);
        if (const auto byte = escapedByte(character)) {
            name += *byte;
        } else {
            name += character;
        }
        escaped.remove_prefix(length);
    }
    return name;
}

}  // namespace orvel
