#pragma once

#include <xcb/xcb.h>

namespace orvel {

class X11Connection;

// A window that nobody sees, to receive and to be asked with; gone with the object, as long as the
// connection is.
class HelperWindow {
public:
    explicit HelperWindow(const X11Connection& x11);
    HelperWindow(HelperWindow&& other) noexcept;
    HelperWindow& operator=(HelperWindow&& other) noexcept;
    ~HelperWindow();
    xcb_window_t id() const { return window; }

private:
    xcb_connection_t* connection;
    xcb_window_t window;
};

}  // namespace orvel
