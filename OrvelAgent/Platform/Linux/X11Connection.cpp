#include "OrvelAgent/Platform/Linux/X11Connection.h"

#include <algorithm>

#include "OrvelAgent/Platform/Linux/XConnect.h"

namespace orvel {

namespace {

const char* explainConnectError(int error) {
    switch (error) {
        case XCB_CONN_CLOSED_PARSE_ERR:
            return "no X display is named";
        case XCB_CONN_CLOSED_INVALID_SCREEN:
            return "the X server has no such screen";
        default:
            return "the X server does not answer or refuses";
    }
}

}  // namespace

X11Refusal::X11Refusal(const char* request, std::uint8_t errorCode)
    : X11Failure(std::string("the X server refused ") + request + ", error " +
                 std::to_string(errorCode)) {}

X11Connection::X11Connection(const std::string& display) {
    int screenNumber = 0;
    connection.reset(connectToXServer(display.empty() ? nullptr : display.c_str(), &screenNumber));
    if (const int error = xcb_connection_has_error(get())) {
        throw X11Failure(explainConnectError(error));
    }
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(get()));
    for (; screenNumber > 0; --screenNumber)
        xcb_screen_next(&screens);
    defaultScreen = screens.data;
}

const xcb_query_extension_reply_t* X11Connection::extension(xcb_extension_t& id) const {
    const auto* found = xcb_get_extension_data(get(), &id);
    return found && found->present ? found : nullptr;
}

void X11Connection::fail(xcb_generic_error_t* error, const char* request) const {
    const X11Message<xcb_generic_error_t> owned(error);
    if (owned) throw X11Refusal(request, owned->error_code);
    throw X11Failure("the connection to the X server is lost");
}

void X11Connection::check(xcb_void_cookie_t cookie, const char* request) const {
    if (auto* error = xcb_request_check(get(), cookie)) fail(error, request);
    if (!isAlive()) fail(nullptr, request);
}

X11Message<xcb_generic_event_t> X11Connection::pollEvent() const {
    X11Message<xcb_generic_event_t> event(xcb_poll_for_event(get()));
    if (!event && !isAlive()) fail(nullptr, "");
    return event;
}

Rect X11Connection::rootArea() const {
    const auto answer =
        reply<xcb_get_geometry_reply>(xcb_get_geometry(get(), root()), "GetGeometry");
    return {0, 0, answer->width, answer->height};
}

void X11Connection::requireBgrxPixels() const {
    const auto* setup = xcb_get_setup(get());
    const auto* formats = xcb_setup_pixmap_formats(setup);
    const bool hasFourBytes = std::any_of(
        formats, formats + xcb_setup_pixmap_formats_length(setup), [&](const auto& format) {
            return format.depth == screen().root_depth && format.bits_per_pixel == 32 &&
                   format.scanline_pad == 32;
        });
    bool hasMasks = false;
    for (auto depth = xcb_screen_allowed_depths_iterator(&screen()); depth.rem;
         xcb_depth_next(&depth)) {
        for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem;
             xcb_visualtype_next(&visual)) {
            if (visual.data->visual_id != screen().root_visual) continue;
            hasMasks = visual.data->red_mask == 0xFF0000 && visual.data->green_mask == 0xFF00 &&
                       visual.data->blue_mask == 0xFF;
        }
    }
    if (!hasFourBytes || !hasMasks || setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST) {
        throw X11Failure("the X server's screen has a depth of " +
                         std::to_string(screen().root_depth) + ", not of 24 in four bytes");
    }
}

}  // namespace orvel
