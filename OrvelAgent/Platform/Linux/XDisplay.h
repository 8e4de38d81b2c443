#pragma once

#include <memory>

struct xcb_connection_t;

namespace orvel {

// A connection to the X server of this session, for what concerns idleness and the display's power.
// Not thread-safe; every call may wait for the server.
class XDisplay {
public:
    // Null when there is no X server, or it does not take us.
    static std::unique_ptr<XDisplay> open();
    ~XDisplay();

    bool isConnected();
    // Ends the screen saver, counts as input, and lights a display that power saving has put out.
    void wake();
    // Keeps the screen saver away for as long as this object lives. False: the server cannot.
    bool suspendScreenSaver();

private:
    explicit XDisplay(xcb_connection_t* opened) : connection(opened) {}
    xcb_connection_t* const connection;
};

}  // namespace orvel
