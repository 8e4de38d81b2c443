#pragma once

#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/X11Framebuffer.h"

namespace orvel {

// The mouse pointer's picture and place, which the server keeps apart from its pixels. Its events
// tell when to look, so that nothing is polled; a program that puts the pointer elsewhere causes
// none, and is noticed when something else is.
class X11Pointer {
public:
    // Asks for the events. `x11` outlives the pointer. Throws X11Failure.
    explicit X11Pointer(const X11Connection& x11);

    // Whether the event says that the pointer moved or looks different. Until look() is over,
    // isTouched() says so too.
    bool handle(const xcb_generic_event_t& event);
    bool isTouched() const { return moved || reshaped; }

    // Asks where it is and, if that changed, what it looks like; the answers are waited for by
    // finishLook(), so that other requests can share the round trip. finishLook() says whether it
    // is to be drawn in another way or place. Throw X11Failure.
    void beginLook();
    bool finishLook();

    // Where it is drawn, in the root window's coordinates; empty when it has no picture.
    Rect bounds() const;

    // The pointer in the pixels of a framebuffer for as long as this lives.
    class Drawn {
    public:
        Drawn(const X11Pointer& pointer, X11Framebuffer& framebuffer);
        ~Drawn();
        Drawn(const Drawn&) = delete;
        Drawn& operator=(const Drawn&) = delete;

    private:
        X11Framebuffer& framebuffer;
        Rect part;                          // of the framebuffer
        std::vector<std::uint32_t> hidden;  // the pixels there
    };

private:
    struct Shape {
        int width = 0, height = 0, hotX = 0, hotY = 0;
        std::vector<std::uint32_t> pixels;  // alpha, red, green, blue; colours times alpha
    };

    const X11Connection& x11;
    std::uint8_t xfixesEvent = 0;
    std::uint8_t inputOpcode = 0;  // 0: the server has no input extension of that kind

    Shape shape;
    int x = 0, y = 0;  // root coordinates of the hot spot
    bool moved = true, reshaped = true;
    xcb_query_pointer_cookie_t placeAsked{};
    std::optional<xcb_xfixes_get_cursor_image_cookie_t> shapeAsked;
};

}  // namespace orvel
