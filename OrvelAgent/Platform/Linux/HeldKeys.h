#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "OrvelAgent/Platform/Linux/KeyLayout.h"

namespace orvel {

// One press or release of an X key.
struct KeyAction {
    KeyCodeX code = 0;
    bool down = false;
    bool operator==(const KeyAction&) const = default;
};

// Which keys this program holds down, and what has to be pressed and released so that each key's
// message finds the modifiers that it names. It only thinks; the caller does what it answers, in
// that order. Belongs to one thread.
//
// A key's modifiers are pressed before it and held until it is released. Those that are down
// already, by the user's hand or because the phone holds the modifier as a key of its own, are left
// alone. Two held keys may share a modifier: the last one releases it. A key that comes without a
// modifier which another one still holds this way lifts it: it is typed as its message says.
class HeldKeys {
public:
    // `key`: the phone's name of it. `modifiers`: those that the message names; nullopt: as they
    // are. `down`: the modifiers that are down now, by whomever; `own`: those that the key is
    // itself. A key that is down already is pressed anew: that is how the phone repeats.
    std::vector<KeyAction> press(std::uint16_t key, KeyCodeX code,
                                 const std::optional<std::vector<ModifierKey>>& modifiers,
                                 ModifierMask down, ModifierMask own);
    // Releases it and what was pressed for it; nothing when it is not held.
    std::vector<KeyAction> release(std::uint16_t key);
    std::vector<KeyAction> releaseAll();

    // Ascending.
    std::vector<KeyCodeX> codes() const;
    bool holds(KeyCodeX code) const { return holders.contains(code); }
    // The server has forgotten them.
    void forget();

private:
    // Who wants an X key down: a key of the phone's, either as that key or as its modifier.
    struct Holder {
        std::uint16_t key = 0;
        bool asModifier = false;
        auto operator<=>(const Holder&) const = default;
    };
    void hold(KeyCodeX code, Holder holder, std::vector<KeyAction>& actions);
    void letGo(const std::function<bool(KeyCodeX, const Holder&)>& which,
               std::vector<KeyAction>& actions);
    bool isHeldAsKey(KeyCodeX code) const;

    std::map<KeyCodeX, std::set<Holder>> holders;
};

}  // namespace orvel
