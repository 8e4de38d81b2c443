#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/HeldKeys.h"
#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelAgent/Platform/Linux/VirtualDevices.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"

struct xkb_context;

namespace orvel {

// The keyboard of an X server as programs see it, and the virtual one (XTEST's) through which keys
// are pressed. Belongs to one thread; whatever asks the server throws X11Failure.
class X11Keyboard {
public:
    // Both outlive this. Throws without XKB, which every server has today.
    X11Keyboard(const X11Connection& x11, const VirtualDevices& devices);

    // True: it was about the keyboard.
    bool handle(const xcb_generic_event_t& event);

    // It is read anew when it is needed next.
    void forgetLayout() { current.reset(); }

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

    // Gives the keys other keysyms, or none again. Sent with the next flush. Such a key stays a
    // spare one in layout(). (One keysym goes to both levels: a letter that stood alone would be
    // given its capital with Shift.)
    void assign(std::vector<KeyAssignment> assignments);
    // The keys that are down as programs see it, by whomever.
    std::vector<KeyCodeX> keysDown() const;

private:
    struct Release {
        void operator()(xkb_context* context) const;
    };

    const X11Connection& x11;
    const VirtualDevices& devices;
    std::uint8_t xkbEvent = 0;
    std::unique_ptr<xkb_context, Release> context;
    std::optional<KeyLayout> current;
    std::uint32_t number = 0;
    std::vector<bool> assigned = std::vector<bool>(256);
};

}  // namespace orvel
