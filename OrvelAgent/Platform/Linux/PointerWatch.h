#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Knows where the pointer is, at most `interval` late, whoever moves it by hand. While it moves it
// is asked for at that interval and its events are switched off: a mouse sends up to a thousand
// a second. While it rests nothing wakes anybody. A program that puts the pointer elsewhere is
// noticed with the next look(). Belongs to one thread; functions that ask throw X11Failure.
class PointerWatch {
public:
    static constexpr Duration interval = std::chrono::milliseconds(80);

    // Asks for the events. `x11` outlives this.
    explicit PointerWatch(const X11Connection& x11);

    struct Place {
        int x = 0, y = 0;  // root coordinates
        bool operator==(const Place&) const = default;
    };
    Place place() const { return last; }
    // What is known before the server says so: we put it there.
    void setPlace(Place place) { last = place; }

    // True: the event says that the pointer moves; look() is due.
    bool handle(const xcb_generic_event_t& event);
    // Asks the server. To be called again after `interval` while it returns true.
    bool look();

private:
    void select(bool wanted);
    bool ask();

    const X11Connection& x11;
    std::uint8_t inputOpcode = 0;  // 0: the server does not tell of motions
    bool isListening = false;
    int stillLooks = 0;  // in a row that found it where it was
    Place last;
};

}  // namespace orvel
