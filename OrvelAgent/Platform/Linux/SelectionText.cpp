#include "OrvelAgent/Platform/Linux/SelectionText.h"

#include <cstdint>
#include <optional>

#include "OrvelKit/Base/Unicode.h"

namespace orvel {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD

// Where the first byte is that belongs to no character.
std::size_t wellFormedLength(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const auto length = characterLength(text.substr(at));
        if (length == 0) break;
        at += length;
    }
    return at;
}

std::string repaired(std::string text) {
    std::size_t at = wellFormedLength(text);
    if (at == text.size()) return text;
    std::string result;
    std::string_view rest = text;
    for (;;) {
        result += rest.substr(0, at);
        rest.remove_prefix(at);
        if (rest.empty()) return result;
        result += replacement;
        rest.remove_prefix(1);
        at = wellFormedLength(rest);
    }
}

std::string utf8FromLatin1(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    for (const char character : bytes) {
        const auto byte = static_cast<std::uint8_t>(character);
        if (byte < 0x80) {
            result += character;
        } else {
            result += static_cast<char>(0xC0 | byte >> 6);
            result += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return result;
}

// nullopt: it is not in Latin-1. Of a whole, well-formed character.
std::optional<char> latin1Character(std::string_view character) {
    if (character.size() == 1) return character[0];
    const auto lead = static_cast<std::uint8_t>(character[0]);
    if (character.size() != 2 || lead > 0xC3) return std::nullopt;
    return static_cast<char>((lead & 0x03) << 6 | (static_cast<std::uint8_t>(character[1]) & 0x3F));
}

}  // namespace

std::string utf8From(SelectionEncoding encoding, std::string bytes) {
    while (!bytes.empty() && bytes.back() == '\0')
        bytes.pop_back();
    switch (encoding) {
        case SelectionEncoding::utf8:
            return repaired(std::move(bytes));
        case SelectionEncoding::latin1:
            return utf8FromLatin1(bytes);
        case SelectionEncoding::unstated:
            return wellFormedLength(bytes) == bytes.size() ? bytes : utf8FromLatin1(bytes);
    }
    return {};
}

std::string latin1From(std::string_view utf8) {
    std::string result;
    while (!utf8.empty()) {
        const auto length = characterLength(utf8);
        result += length ? latin1Character(utf8.substr(0, length)).value_or('?') : '?';
        utf8.remove_prefix(length ? length : 1);
    }
    return result;
}

bool isLatin1(std::string_view utf8) {
    while (!utf8.empty()) {
        const auto length = characterLength(utf8);
        if (length == 0 || !latin1Character(utf8.substr(0, length))) return false;
        utf8.remove_prefix(length);
    }
    return true;
}

std::size_t pieceEnd(std::string_view utf8, std::size_t begin, std::size_t limit) {
    if (utf8.size() - begin <= limit) return utf8.size();
    std::size_t end = begin + limit;
    // A character is four bytes at most.
    for (int back = 0; back < 3 && end > begin + 1; ++back, --end) {
        if ((static_cast<std::uint8_t>(utf8[end]) & 0xC0) != 0x80) return end;
    }
    return (static_cast<std::uint8_t>(utf8[end]) & 0xC0) != 0x80 ? end : begin + limit;
}

}  // namespace orvel
