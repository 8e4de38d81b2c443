#include "OrvelAgent/Platform/Linux/HelperWindow.h"

#include <utility>

#include "OrvelAgent/Platform/Linux/X11Connection.h"

namespace orvel {

HelperWindow::HelperWindow(const X11Connection& x11)
    : connection(x11.get()), window(xcb_generate_id(x11.get())) {
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection, 0, window, x11.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
}

HelperWindow::HelperWindow(HelperWindow&& other) noexcept
    : connection(other.connection), window(std::exchange(other.window, XCB_NONE)) {}

HelperWindow& HelperWindow::operator=(HelperWindow&& other) noexcept {
    std::swap(connection, other.connection);
    std::swap(window, other.window);
    return *this;
}

HelperWindow::~HelperWindow() {
    if (window != XCB_NONE) xcb_destroy_window(connection, window);
}

}  // namespace orvel
