#pragma once

#include <string>
#include <string_view>

namespace orvel {

// Text from elsewhere as it may be shown in one line of a terminal: control characters, characters
// that turn the direction of writing or end a line, and bytes that are no UTF-8 become escapes like
// \n, \x1b or \u{202e}; everything else stays as it is.
std::string printable(std::string_view text);

}  // namespace orvel
