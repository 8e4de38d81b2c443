#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Which characters are lent keys that mean nothing under the layout, two a key, one of them with
// Shift, and which of them give way when there are more characters than places: those typed longest
// ago. It only keeps the books. Belongs to one thread.
//
// A program translates a key when it gets to it, by the table of that moment. So a place that was
// typed with keeps its character until the program is known to have got there, or until it was at
// rest for a while; and a new character is typed only `grace` after its assignment.
class SpareKeys {
public:
    static constexpr Duration grace = std::chrono::milliseconds(20);

    // Those that are there now. What is lent of others is forgotten.
    void setCodes(const std::vector<KeyCodeX>& codes);
    // How many characters there is room for.
    std::size_t size() const { return places.size(); }

    struct Place {
        KeyCodeX code = 0;
        bool withShift = false;
        char32_t character = 0;   // 0: free
        MonotonicTime readyAt{};  // from then on it can be typed with
        MonotonicTime usedAt{};
    };
    // nullptr: no place is lent to it.
    const Place* find(char32_t character) const;
    void markUsed(char32_t character, MonotonicTime now);

    // Lends places to the first of `wanted`, distinct and in the order of typing, as many as there
    // are; those that have one keep it. What is returned: keys with new characters, or until when
    // to wait for the first place that may give way.
    struct Plan {
        std::vector<KeyCodeX> changed;  // ascending
        std::optional<MonotonicTime> waitUntil;
    };
    Plan lend(const std::vector<char32_t>& wanted, MonotonicTime now, Duration rest);
    // The program has read what was typed until then.
    void markRead(MonotonicTime until) { readUntil = std::max(readUntil, until); }

    // The characters of a key, without and with Shift: one alone stands for both; 0: it is not
    // lent.
    struct Characters {
        char32_t plain = 0, shifted = 0;
        bool operator==(const Characters&) const = default;
    };
    Characters charactersOf(KeyCodeX code) const;
    // The keys that are lent, ascending.
    std::vector<KeyCodeX> lent() const;
    std::optional<MonotonicTime> lastUse() const;  // nullopt: nothing is lent
    // The server has something else there.
    void forget(KeyCodeX code);
    void forgetAll();

private:
    std::vector<Place> places;
    MonotonicTime readUntil{};
};

}  // namespace orvel
