#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

// Length in bytes, 1 to 4, of the well-formed UTF-8 character that `text` begins with; 0 when it
// begins with none. `text` is not empty.
std::size_t characterLength(std::string_view text);

// Bytes that belong to no UTF-8 character are left out.
std::u16string utf16From(std::string_view utf8);

// Puts UTF-16 that was cut without regard to surrogate pairs together again: a high surrogate at
// the end of a piece waits for the next one.
class Utf16Joiner {
public:
    // The characters that are complete with this piece. Surrogates without their other half are
    // left out.
    std::u32string join(std::u16string_view piece);
    // What follows does not continue the text so far.
    void reset() { high = 0; }

private:
    char16_t high = 0;  // the surrogate that waits; 0: none
};

}  // namespace orvel
