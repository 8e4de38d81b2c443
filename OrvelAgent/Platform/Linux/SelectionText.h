#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

// How the text of a selection is encoded.
enum class SelectionEncoding {
    utf8,
    latin1,   // STRING
    unstated  // UTF-8 if it can be that, else Latin-1
};

// The text as well-formed UTF-8. What is no character becomes U+FFFD; zero bytes at the end, which
// some programs count in, go.
std::string utf8From(SelectionEncoding encoding, std::string bytes);

// For programs that know nothing else; other characters become question marks.
std::string latin1From(std::string_view utf8);
bool isLatin1(std::string_view utf8);

// The end of the piece of at most `limit` bytes that begins at `begin`: no character is cut as long
// as one fits.
std::size_t pieceEnd(std::string_view utf8, std::size_t begin, std::size_t limit);

}  // namespace orvel
