#pragma once

#include <cstddef>
#include <string_view>

namespace orvel {

// Whether `text` (UTF-8) has more than `limit` characters as people count them: a letter with its
// accents, an emoji with its modifiers, a line's end of two signs is one each (extended grapheme
// clusters). Bytes that are no text count too. A text of more than `limit` code points takes a
// closer look, which is slower.
bool hasMoreCharactersThan(std::size_t limit, std::string_view text);

}  // namespace orvel
