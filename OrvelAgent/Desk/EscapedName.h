#pragma once

#include <string>
#include <string_view>

namespace orvel {

// Names and paths of files on their way into JSON, which is UTF-8, and back. A byte that belongs to
// no UTF-8 character stands there as the private-use character U+EF00 plus the byte; so do the
// bytes of a name that has such characters (U+EF80 to U+EFFF) itself. All other names stay as they
// are.
struct EscapedName {
    static std::string escape(std::string_view name);
    // Gives back every `name` that was escaped.
    static std::string unescape(std::string_view escaped);
    EscapedName() = delete;
};

}  // namespace orvel
