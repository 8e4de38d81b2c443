#include "OrvelKit/Base/Printable.h"

#include <cstdint>
#include <cstdio>

#include "OrvelKit/Base/Unicode.h"

namespace orvel {

namespace {

// Of a well-formed character.
char32_t codePoint(std::string_view character) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(character[i]); };
    if (character.size() == 1) return byte(0);
    char32_t value = byte(0) & (0x7F >> character.size());
    for (std::size_t i = 1; i < character.size(); ++i)
        value = value << 6 | (byte(i) & 0x3F);
    return value;
}

bool isShown(char32_t c) {
    if (c < 0x20 || (c >= 0x7F && c < 0xA0)) return false;                  // controls
    if (c == 0x2028 || c == 0x2029) return false;                           // ends of lines
    if (c == 0x061C || c == 0x200E || c == 0x200F) return false;            // marks of direction
    return !(c >= 0x202A && c <= 0x202E) && !(c >= 0x2066 && c <= 0x2069);  // embeddings of it
}

std::string escape(const char* format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) {
            result += escape("\\x%02x", static_cast<std::uint8_t>(text.front()));
            text.remove_prefix(1);
            continue;
        }
        const char32_t c = codePoint(text.substr(0, length));
        if (c == '\n' || c == '\t' || c == '\r') {
            result += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
        } else if (isShown(c)) {
            result += text.substr(0, length);
        } else {
            result += escape(c < 0x80 ? "\\x%02x" : "\\u{%x}", static_cast<unsigned>(c));
        }
        text.remove_prefix(length);
    }
    return result;
}

}  // namespace orvel
