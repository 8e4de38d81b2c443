#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Asks the program that has the keyboard whether it has read all of its events up to now: by
// _NET_WM_PING of the Extended Window Manager Hints, by which window managers find out who hangs
// and which the toolkits answer by themselves, each event in its turn. Belongs to one thread; waits
// for the server and throws X11Failure.
class ProgramPing {
public:
    // `x11` outlives this. `rootEvents`: what else is selected on the root window.
    ProgramPing(const X11Connection& x11, std::uint32_t rootEvents);

    // Sent with the next flush, after what was sent before. False: the program does not answer
    // that.
    bool send(MonotonicTime now);
    // The time of the question that this event answers.
    std::optional<MonotonicTime> handle(const xcb_generic_event_t& event);
    // No answer is of interest any more.
    void stop();

private:
    std::optional<xcb_window_t> target() const;
    bool answers(xcb_window_t window) const;
    void listen(bool toAnswers);

    const X11Connection& x11;
    const std::uint32_t otherEvents;
    xcb_atom_t protocols, ping;
    bool isListening = false;
    xcb_window_t asked = XCB_NONE;
    std::uint32_t number = 0;  // tells the answers apart
    MonotonicTime askedAt;
};

}  // namespace orvel
