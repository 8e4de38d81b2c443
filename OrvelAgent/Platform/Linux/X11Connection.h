#pragma once

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "OrvelAgent/Media/PixelBuffer.h"

namespace orvel {

// The X server is not there, has gone, or lacks what is needed. Thrown and caught within the X11
// side of the ports, which report it in their own way.
struct X11Failure : std::runtime_error {
    using runtime_error::runtime_error;
};

// The server is there and said no to one request.
struct X11Refusal : X11Failure {
    X11Refusal(const char* request, std::uint8_t errorCode);
};

struct FreeDelete {
    void operator()(void* memory) const { std::free(memory); }
};
template <class Message>
using X11Message = std::unique_ptr<Message, FreeDelete>;

// A connection to the X server; ends with the object. One thread at a time. The process ignores
// SIGPIPE.
class X11Connection {
public:
    // `display` as in $DISPLAY; empty stands for what that says. Blocks while the server answers.
    // Throws X11Failure.
    explicit X11Connection(const std::string& display);

    xcb_connection_t* get() const { return connection.get(); }
    // The screen that `display` names. Its size is that at the time of connecting.
    const xcb_screen_t& screen() const { return *defaultScreen; }
    xcb_window_t root() const { return defaultScreen->root; }
    // False once the connection is lost, as far as was noticed.
    bool isAlive() const { return !xcb_connection_has_error(get()); }

    // nullptr when the server does not have it.
    const xcb_query_extension_reply_t* extension(xcb_extension_t& id) const;

    // Waits for what a request answers:
    //     x11.reply<xcb_get_geometry_reply>(xcb_get_geometry(x11.get(), window), "GetGeometry");
    // Throws X11Refusal, or X11Failure when the connection is lost.
    template <auto replyFunction, class Cookie>
    auto reply(Cookie cookie, const char* request) const {
        xcb_generic_error_t* error = nullptr;
        auto* answer = replyFunction(get(), cookie, &error);
        if (!answer) fail(error, request);
        return X11Message<std::remove_pointer_t<decltype(answer)>>(answer);
    }
    // The same for a request of the _checked kind, which has no answer.
    void check(xcb_void_cookie_t cookie, const char* request) const;

    // The next event that has come, without waiting for any; nullptr when there is none. Throws
    // X11Failure when the connection is lost.
    X11Message<xcb_generic_event_t> pollEvent() const;

    // In the root window's coordinates, as of now.
    Rect rootArea() const;

    // Throws X11Failure unless the screen's pixels are four bytes: blue, green, red, unused.
    void requireBgrxPixels() const;

private:
    [[noreturn]] void fail(xcb_generic_error_t* error, const char* request) const;

    struct Disconnect {
        void operator()(xcb_connection_t* ended) const { xcb_disconnect(ended); }
    };
    std::unique_ptr<xcb_connection_t, Disconnect> connection;
    const xcb_screen_t* defaultScreen = nullptr;
};

}  // namespace orvel
