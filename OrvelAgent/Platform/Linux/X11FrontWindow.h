#pragma once

#include <xcb/xcb.h>

#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/Linux/WindowIdentity.h"
#include "OrvelAgent/Platform/Linux/X11Client.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Watches which window the window manager calls active (EWMH: _NET_ACTIVE_WINDOW), by a connection
// of its own; window managers and X servers may come and go. Made, used and destroyed on the queue.
class X11FrontWindow {
public:
    // Between two windows there is none for a moment, which is not told.
    static constexpr std::chrono::milliseconds settling{300};

    // `onChange` is told of the window that is active at the beginning and of each other one that
    // becomes it; empty: none is.
    X11FrontWindow(SerialQueue& queue, const std::string& display,
                   std::function<void(const WindowIdentity&)> onChange);
    ~X11FrontWindow();
    X11FrontWindow(const X11FrontWindow&) = delete;
    X11FrontWindow& operator=(const X11FrontWindow&) = delete;

private:
    struct Session;

    void handle(const xcb_generic_event_t& event) RUNS_ON(queue);
    void findManager() RUNS_ON(queue);
    void look() RUNS_ON(queue);
    xcb_window_t activeWindow() RUNS_ON(queue);
    void watch(xcb_window_t window, std::uint32_t events) RUNS_ON(queue);
    void none() RUNS_ON(queue);
    xcb_window_t readWindow(xcb_window_t of, xcb_atom_t property) RUNS_ON(queue);

    SerialQueue& queue;
    const std::function<void(const WindowIdentity&)> onChange;
    std::shared_ptr<X11Client> client OWNED_BY(queue);
    std::unique_ptr<Session> session OWNED_BY(queue);  // while there is a server
    xcb_window_t front OWNED_BY(queue) = XCB_NONE;     // the last one told, if it still is
    bool isFrontTold OWNED_BY(queue) = false;          // rather than that there is none
    Timer settled OWNED_BY(queue);
};

}  // namespace orvel
