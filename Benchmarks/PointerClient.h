#pragma once

#include <xcb/xcb.h>

#include <memory>
#include <optional>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// An X client with a window that the pointer moves over. Failures are thrown as std::runtime_error.
class PointerClient {
public:
    static constexpr int size = 600;  // of the window, at the top left of the screen

    PointerClient();  // on $DISPLAY
    ~PointerClient();
    PointerClient(const PointerClient&) = delete;
    PointerClient& operator=(const PointerClient&) = delete;

    // Moves the pointer as a program does that knows no more of it: a request of another client.
    void fakeMotion(int dx, int dy);
    void centre();
    // Forgets the motions so far.
    void drain();
    // When the next motion event is in this client's hands; nullopt: none within a second.
    std::optional<MonotonicTime> nextMotion();

private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
    };
    using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;
    static Connection connect();

    const Connection x11, other;
    xcb_window_t root = 0, window = 0;
};

}  // namespace orvel
