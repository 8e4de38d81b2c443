#include "OrvelAgent/Platform/Linux/XConnect.h"

#include <xcb/xcb.h>

#include <mutex>

namespace orvel {

xcb_connection_t* connectToXServer(const char* display, int* screenNumber) {
    static std::mutex opening;
    const std::lock_guard hold(opening);
    return xcb_connect(display, screenNumber);
}

}  // namespace orvel
