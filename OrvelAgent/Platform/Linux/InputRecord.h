#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"

namespace orvel {

// What this program holds and has changed on an X server, written down there, so that after a crash
// the next one can put it right. It is a property of a window that nobody sees and that stays until
// the server ends: one on the root window would wake the window manager at each key. Belongs to one
// thread; waits for the server and throws X11Failure.
class InputRecord {
public:
    struct Content {
        std::vector<KeyCodeX> keys;           // that are held
        std::vector<std::uint8_t> buttons;    // the same
        std::vector<KeyAssignment> assigned;  // to spare keys
        bool hasSuspendedRepeat = false;
        bool operator==(const Content&) const = default;
    };

    // `display` as X11Connection has it; `x11` is connected to it and outlives this.
    InputRecord(const X11Connection& x11, const std::string& display);

    // What the one before left behind; after its orderly end, nothing.
    const Content& found() const { return last; }
    // Sent with the next flush, before what is to be done then.
    void write(const Content& content);

private:
    bool findWindow();
    void makeWindow(const std::string& display) const;

    const X11Connection& x11;
    xcb_atom_t name = XCB_ATOM_NONE;
    xcb_window_t window = XCB_NONE;
    Content last;
};

}  // namespace orvel
