#include "Benchmarks/PointerClient.h"

#include <poll.h>
#include <xcb/xtest.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace orvel {

namespace {

using namespace std::chrono_literals;

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
using Event = std::unique_ptr<xcb_generic_event_t, Free>;

std::uint8_t typeOf(const Event& event) {
    return event->response_type & 0x7f;
}

void roundTrip(xcb_connection_t* connection) {
    const std::unique_ptr<xcb_get_input_focus_reply_t, Free> reply(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    if (!reply) throw std::runtime_error("the display is gone");
}

}  // namespace

PointerClient::Connection PointerClient::connect() {
    Connection connection(xcb_connect(nullptr, nullptr));
    if (xcb_connection_has_error(connection.get()) != 0) throw std::runtime_error("no display");
    return connection;
}

PointerClient::PointerClient() : x11(connect()), other(connect()) {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(x11.get())).data;
    root = screen->root;
    window = xcb_generate_id(x11.get());
    const std::uint32_t values[] = {screen->white_pixel, 1,
                                    XCB_EVENT_MASK_POINTER_MOTION | XCB_EVENT_MASK_EXPOSURE};
    xcb_create_window(x11.get(), XCB_COPY_FROM_PARENT, window, root, 0, 0, size, size, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    xcb_map_window(x11.get(), window);
    xcb_flush(x11.get());
    for (;;) {
        const Event event(xcb_wait_for_event(x11.get()));
        if (!event) throw std::runtime_error("the display is gone");
        if (typeOf(event) == XCB_EXPOSE) break;
    }
    centre();
}

PointerClient::~PointerClient() = default;

void PointerClient::fakeMotion(int dx, int dy) {
    constexpr std::uint8_t relative = 1;
    xcb_test_fake_input(other.get(), XCB_MOTION_NOTIFY, relative, XCB_CURRENT_TIME, XCB_NONE,
                        static_cast<std::int16_t>(dx), static_cast<std::int16_t>(dy), 0);
    xcb_flush(other.get());
}

void PointerClient::centre() {
    xcb_warp_pointer(x11.get(), XCB_NONE, root, 0, 0, 0, 0, size / 2, size / 2);
    roundTrip(x11.get());
    drain();
}

void PointerClient::drain() {
    roundTrip(x11.get());
    while (const Event event{xcb_poll_for_event(x11.get())}) {
    }
}

std::optional<MonotonicTime> PointerClient::nextMotion() {
    const MonotonicTime deadline = std::chrono::steady_clock::now() + 1s;
    for (;;) {
        while (const Event event{xcb_poll_for_event(x11.get())}) {
            if (typeOf(event) == XCB_MOTION_NOTIFY) return std::chrono::steady_clock::now();
        }
        if (xcb_connection_has_error(x11.get()) != 0) {
            throw std::runtime_error("the display is gone");
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left <= 0ms) return std::nullopt;
        pollfd ready{xcb_get_file_descriptor(x11.get()), POLLIN, 0};
        poll(&ready, 1, static_cast<int>(left.count()) + 1);
    }
}

}  // namespace orvel
