#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

inline constexpr std::size_t maxNameInText = 64;  // code points

// Phones call themselves as they like. This is such a name (UTF-8) as part of a sentence: one line,
// cut with "…" where it is longer than maxNameInText, without the signs that are not seen but turn
// the direction of the text around them.
std::string phoneNameInText(std::string_view name);

}  // namespace orvel
