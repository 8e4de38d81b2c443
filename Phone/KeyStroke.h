#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvelKit/Wire/Control.h"

namespace orvel::phone {

// A key with the modifiers held meanwhile, as people write it: "a", "cmd+shift+z", "F5", "ctrl++".
struct KeyStroke {
    std::uint16_t code = 0;  // KeyCode.h
    Modifiers modifiers;
    bool operator==(const KeyStroke&) const = default;

    // Modifiers in any order before the key, case does not matter. The key is a name, "code:N", or
    // a character of a US keyboard (a capital is its letter with Shift) or one of the six letters
    // that a Turkish one adds. nullopt: it is none of these.
    static std::optional<KeyStroke> parse(std::string_view text);

    // What a key's name may be, for people; one of several spellings each.
    static std::vector<std::string> names();
};

}  // namespace orvel::phone
