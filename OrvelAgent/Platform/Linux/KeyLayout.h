#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

struct xkb_keymap;

namespace orvel {

using KeyCodeX = std::uint8_t;      // an X keycode, 8 to 255
using ModifierMask = std::uint8_t;  // the core protocol's: Shift is 1, Lock 2, Control 4, ...
inline constexpr ModifierMask lockModifier = 2;

// A modifier key and what pressing it adds to the state.
struct ModifierKey {
    KeyCodeX code = 0;
    ModifierMask mask = 0;
    bool operator==(const ModifierKey&) const = default;
};

// A key and the keysyms that it has meanwhile, without and with Shift; 0: none.
struct KeyAssignment {
    KeyCodeX code = 0;
    std::uint32_t symbol = 0, shifted = 0;
    bool operator==(const KeyAssignment&) const = default;
};

enum class ModifierRole { shift, control, alternate, super, level3 };

// What the keys of a keyboard mean under the layout in use; a snapshot. Belongs to one thread.
class KeyLayout {
public:
    // Owns the keymap. A key that has just what is in `lent` counts as one that means nothing.
    explicit KeyLayout(xkb_keymap* keymap, const std::vector<KeyAssignment>& lent = {});
    KeyLayout(KeyLayout&&) noexcept = default;
    KeyLayout& operator=(KeyLayout&&) noexcept = default;

    // By XKB's name of its place, aliases included.
    std::optional<KeyCodeX> named(const char* name) const;
    // Such as the left Shift; nullopt: no key does that here.
    std::optional<ModifierKey> modifier(ModifierRole role) const;
    // What holding that key adds to the state; 0 for other keys, and for those that lock.
    ModifierMask maskOf(KeyCodeX code) const;

    // How a character is typed while other modifiers are as they are.
    struct Stroke {
        KeyCodeX code = 0;
        bool withShift = false, withLevel3 = false;
    };
    struct State {
        ModifierMask held = 0;    // keys that are down
        ModifierMask locked = 0;  // such as Caps Lock and Num Lock
        std::uint8_t group = 0;   // the layout chosen, of several
        auto operator<=>(const State&) const = default;
    };
    // Keys of the keypad are left out: they depend on Num Lock and mean something else to some
    // programs. nullopt: no key gives that.
    std::optional<Stroke> strokeFor(char32_t character, const State& state) const;

    // Keycodes that mean nothing, ascending.
    const std::vector<KeyCodeX>& spareCodes() const { return spare; }
    // The keysyms of a key in the first layout, at its first two levels.
    KeyAssignment assignmentOf(KeyCodeX code) const;

private:
    struct Release {
        void operator()(xkb_keymap* keymap) const;
    };
    using Strokes = std::map<char32_t, Stroke>;
    Strokes strokesIn(const State& state) const;

    std::unique_ptr<xkb_keymap, Release> keymap;
    std::vector<KeyCodeX> spare;
    std::vector<bool> isSpare = std::vector<bool>(256);
    std::map<ModifierRole, ModifierKey> modifiers;
    mutable std::map<State, Strokes> known;
};

}  // namespace orvel
