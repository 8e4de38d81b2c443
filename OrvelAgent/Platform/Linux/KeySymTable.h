#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <vector>

#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/XkbHeader.h"

namespace orvel {

// The keysyms of neighbouring keys of one keyboard, as XKB has them: read, changed here and there,
// and written back by one request, so that every program is told once, however the changed keys
// lie. The core protocol's ChangeKeyboardMapping is not for that: it would guess the types of the
// keys in between anew, and lose levels and groups.
//
// Between reading and writing the server has to be grabbed, or what somebody else changes meanwhile
// would be undone.
class KeySymTable {
public:
    // Both inclusive.
    struct Range {
        KeyCodeX first = 0, last = 0;
    };

    // `keyboard` in XKB's numbers, also below. Answered with what the constructor takes.
    static xcb_xkb_get_map_cookie_t ask(const X11Connection& x11, std::uint16_t keyboard,
                                        Range range);
    explicit KeySymTable(const xcb_xkb_get_map_reply_t& answer);

    // Whether the key has exactly these, in one group, or none at all where they are 0.
    bool has(const KeyAssignment& assignment) const;
    void set(const KeyAssignment& assignment);
    bool operator==(const KeySymTable& other) const;

    // Of the checked kind; within the range that was asked for.
    xcb_void_cookie_t write(const X11Connection& x11, std::uint16_t keyboard, Range range) const;

private:
    struct Row {
        xcb_xkb_key_sym_map_t head{};
        std::vector<xcb_keysym_t> symbols;
    };
    std::vector<Row> rows;
    KeyCodeX first;
    xcb_keycode_t lowest, highest;  // of the whole keyboard
};

}  // namespace orvel
