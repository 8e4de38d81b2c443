#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/HeldKeys.h"
#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"

struct xkb_context;

namespace orvel {

// The keyboard of an X server as programs see it, and the virtual one (XTEST's) through which keys
// are pressed. Belongs to one thread; whatever asks the server throws X11Failure.
class X11Keyboard {
public:
    // `x11` outlives this. Without XKB, which every server has today, there is no keyboard: throws.
    explicit X11Keyboard(const X11Connection& x11);

    // True: it was about the keyboard. The layout is read anew when it is needed next.
    bool handle(const xcb_generic_event_t& event);

    // Under the layout in use; valid until the next call of handle() or of this.
    const KeyLayout& layout();
    // Another number: layout() has been read anew.
    std::uint32_t layoutNumber() const { return number; }
    // What is pressed and locked now, after everything sent so far.
    KeyLayout::State state() const;

    // The X key at a place of the Mac's keyboard.
    std::optional<KeyCodeX> codeAt(std::uint16_t virtualCode);

    // Sent with the next flush.
    void send(const KeyAction& action) const;
    void send(const std::vector<KeyAction>& actions) const;
    // Locks and unlocks modifiers, as Caps Lock does, without a key.
    void lock(ModifierMask modifiers, bool locked) const;

    // Gives each of the keys one keysym, whatever the modifiers; 0: none. Sent with the next flush.
    // Such a key stays a spare one in layout().
    struct Assignment {
        KeyCodeX code = 0;
        std::uint32_t symbol = 0;
    };
    void assign(std::vector<Assignment> assignments);
    // The keys that are down on the virtual keyboard, by whichever program.
    std::vector<KeyCodeX> virtualKeysDown() const;

    // The virtual keyboard.
    std::uint16_t device() const { return virtualKeyboard; }

private:
    struct Release {
        void operator()(xkb_context* context) const;
    };
    void findVirtualKeyboard();

    const X11Connection& x11;
    std::uint8_t xkbEvent = 0;
    std::uint16_t virtualKeyboard = 0;
    std::unique_ptr<xkb_context, Release> context;
    std::optional<KeyLayout> current;
    std::uint32_t number = 0;
    std::vector<bool> assigned = std::vector<bool>(256);
};

}  // namespace orvel
