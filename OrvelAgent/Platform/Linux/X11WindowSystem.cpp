#include <xcb/xcb.h>

#include <cstdlib>

#include "OrvelAgent/Platform/Linux/XConnect.h"
#include "OrvelAgent/Platform/WindowSystem.h"

namespace orvel {

bool prepareWindowSystem() {
    xcb_connection_t* connection = connectToXServer(nullptr, nullptr);
    const bool answers = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    if (!answers) return false;
    constexpr int keep = 0;
    // The screen is an X server's, so the windows are, too: only there they find their places.
    setenv("QT_QPA_PLATFORM", "xcb", keep);
    // Nothing here draws with OpenGL, so nobody need look for its drivers.
    setenv("QT_XCB_GL_INTEGRATION", "none", keep);
    return true;
}

}  // namespace orvel
