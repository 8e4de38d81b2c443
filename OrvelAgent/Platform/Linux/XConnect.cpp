#include "OrvelAgent/Platform/Linux/XConnect.h"

#include <xcb/xcb.h>

namespace orvel {

std::unique_lock<std::mutex> holdXConnecting() {
    static std::mutex connecting;
    return std::unique_lock(connecting);
}

xcb_connection_t* connectToXServer(const char* display, int* screenNumber) {
    const auto hold = holdXConnecting();
    return xcb_connect(display, screenNumber);
}

}  // namespace orvel
