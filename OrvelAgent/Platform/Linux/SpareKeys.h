#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Which characters are lent keys that mean nothing under the layout, and which of them gives way
// when there are more characters than keys: the one typed longest ago. It only keeps the books.
// Belongs to one thread.
//
// A program translates a key when it gets to it, by the table of that moment. So a key that was
// just typed with keeps its character for `rest`, and a new character is typed only `grace` after
// its assignment.
class SpareKeys {
public:
    static constexpr Duration rest = std::chrono::milliseconds(40);
    static constexpr Duration grace = std::chrono::milliseconds(20);

    // Those that are there now. What is lent of others is forgotten.
    void setCodes(const std::vector<KeyCodeX>& codes);
    std::size_t size() const { return keys.size(); }

    struct Key {
        KeyCodeX code = 0;
        char32_t character = 0;   // 0: not lent
        MonotonicTime readyAt{};  // from then on it can be typed with
        MonotonicTime usedAt{};
    };
    // nullptr: not lent to it.
    const Key* find(char32_t character) const;
    void markUsed(char32_t character, MonotonicTime now);

    // Lends keys to the first of `wanted`, distinct and in the order of typing, as many as there
    // are keys; those that have one keep it. What is returned: keys with new characters, or until
    // when to wait for the first one that may give way.
    struct Plan {
        std::vector<Key> changed;
        std::optional<MonotonicTime> waitUntil;
    };
    Plan lend(const std::vector<char32_t>& wanted, MonotonicTime now);

    std::vector<Key> lent() const;
    std::optional<MonotonicTime> lastUse() const;  // nullopt: nothing is lent
    // The server has something else there.
    void forget(KeyCodeX code);
    void forgetAll();

private:
    std::vector<Key> keys;
};

}  // namespace orvel
