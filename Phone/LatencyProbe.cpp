#include "Phone/LatencyProbe.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <utility>

namespace orvel::phone {

namespace {

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};

}  // namespace

struct LatencyProbe::Server {
    xcb_connection_t* connection = nullptr;
    const xcb_screen_t* screen = nullptr;
    xcb_window_t window = 0;

    ~Server() { xcb_disconnect(connection); }

    // Requests are done in order: once this one is answered, all before it are done.
    bool synchronize() {
        const std::unique_ptr<xcb_get_input_focus_reply_t, FreeReply> reply(
            xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
        return reply != nullptr;
    }
};

LatencyProbe::LatencyProbe(std::unique_ptr<Server> xServer) : server(std::move(xServer)) {}
LatencyProbe::~LatencyProbe() = default;

std::unique_ptr<LatencyProbe> LatencyProbe::open(int x, int y, std::string& problem) {
    auto server = std::make_unique<Server>();
    int number = 0;
    server->connection = xcb_connect(nullptr, &number);
    if (xcb_connection_has_error(server->connection)) {
        problem = "there is no X display";
        return nullptr;
    }
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(server->connection));
    while (number-- > 0)
        xcb_screen_next(&screens);
    server->screen = screens.data;
    server->window = xcb_generate_id(server->connection);
    const std::uint32_t values[] = {server->screen->black_pixel, 1};
    xcb_create_window(server->connection, XCB_COPY_FROM_PARENT, server->window,
                      server->screen->root, static_cast<std::int16_t>(x),
                      static_cast<std::int16_t>(y), size, size, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(server->connection, server->window);
    if (!server->synchronize()) {
        problem = "the X display went away";
        return nullptr;
    }
    return std::unique_ptr<LatencyProbe>(new LatencyProbe(std::move(server)));
}

std::optional<MonotonicTime> LatencyProbe::show(bool white) {
    const MonotonicTime askedAt = std::chrono::steady_clock::now();
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    const std::uint32_t colour = white ? server->screen->white_pixel : server->screen->black_pixel;
    xcb_configure_window(server->connection, server->window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    xcb_change_window_attributes(server->connection, server->window, XCB_CW_BACK_PIXEL, &colour);
    xcb_clear_area(server->connection, 0, server->window, 0, 0, 0, 0);
    if (!server->synchronize()) return std::nullopt;
    return askedAt;
}

}  // namespace orvel::phone
