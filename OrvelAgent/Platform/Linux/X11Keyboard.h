#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/HeldKeys.h"
#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelAgent/Platform/Linux/KeySymTable.h"
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

    // Gives the keys other keysyms, or none again, on all keyboards. Done when this returns. Such
    // a key stays a spare one in layout(). A key that somebody else has given a meaning since
    // layout() was read is left alone: layout() will tell. (One keysym goes to both levels: a
    // letter that stood alone would be given its capital with Shift.)
    //
    // At each call every program reads the whole table again, and a window manager takes hold of
    // all its keys anew, during which clicks wait.
    void assign(const std::vector<KeyAssignment>& assignments);
    // Takes back what a predecessor assigned, where it is still there.
    void takeBack(const std::vector<KeyAssignment>& assignments);
    // The keys that are down as programs see it, by whomever.
    std::vector<KeyCodeX> keysDown() const;

private:
    struct Release {
        void operator()(xkb_context* context) const;
    };

    struct Table {
        std::uint16_t keyboard = 0;
        KeySymTable symbols;
        std::vector<KeyCodeX> changed = {};
    };
    std::vector<Table> readTables(KeySymTable::Range range) const;
    void write(const std::vector<Table>& tables) const;

    const X11Connection& x11;
    const VirtualDevices& devices;
    std::uint8_t xkbEvent = 0;
    std::unique_ptr<xkb_context, Release> context;
    std::optional<KeyLayout> current;
    std::uint32_t number = 0;
    std::vector<KeyAssignment> assigned = std::vector<KeyAssignment>(256);  // by keycode
    // The requests of the last assign(), by their sequence numbers: nobody else was served between
    // them, so the events that carry these are about our changes.
    std::uint32_t firstRequest = 0, lastRequest = 0;
};

}  // namespace orvel
