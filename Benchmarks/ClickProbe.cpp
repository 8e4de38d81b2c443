// From a click to what it changes on the screen, as the X server sees both.
//
//     orvel-click-probe X Y SEEN_X SEEN_Y
//
// Clicks at (X, Y) and prints how many milliseconds later the pixel at (SEEN_X, SEEN_Y) has another
// colour; fails when it keeps it for ten seconds.

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds patience{10};

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

class Screen {
public:
    Screen() : connection(xcb_connect(nullptr, nullptr)) {}
    ~Screen() { xcb_disconnect(connection); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool isThere() const { return xcb_connection_has_error(connection) == 0; }

    void send(std::uint8_t type, std::uint8_t detail, std::int16_t x, std::int16_t y) {
        xcb_test_fake_input(connection, type, detail, XCB_CURRENT_TIME, root(), x, y, 0);
    }
    void click(std::int16_t x, std::int16_t y) {
        send(XCB_MOTION_NOTIFY, 0, x, y);
        send(XCB_BUTTON_PRESS, XCB_BUTTON_INDEX_1, 0, 0);
        send(XCB_BUTTON_RELEASE, XCB_BUTTON_INDEX_1, 0, 0);
        xcb_flush(connection);
    }
    std::optional<std::uint32_t> pixel(std::int16_t x, std::int16_t y) {
        constexpr std::uint32_t allPlanes = ~0u;
        const std::unique_ptr<xcb_get_image_reply_t, Free> image(xcb_get_image_reply(
            connection,
            xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root(), x, y, 1, 1, allPlanes),
            nullptr));
        if (!image || xcb_get_image_data_length(image.get()) < 3) return std::nullopt;
        const std::uint8_t* bytes = xcb_get_image_data(image.get());
        return bytes[0] | bytes[1] << 8 | bytes[2] << 16;
    }

private:
    xcb_window_t root() const {
        return xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    }
    xcb_connection_t* const connection;
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 5) {
        std::fputs("usage: orvel-click-probe X Y SEEN_X SEEN_Y\n", stderr);
        return 2;
    }
    const auto number = [&](int index) {
        return static_cast<std::int16_t>(std::atoi(arguments[index]));
    };
    Screen screen;
    const auto before = screen.isThere() ? screen.pixel(number(3), number(4)) : std::nullopt;
    if (!before) {
        std::fputs("no such place on the display\n", stderr);
        return 1;
    }
    const auto began = Clock::now();
    screen.click(number(1), number(2));
    while (screen.pixel(number(3), number(4)) == before) {
        if (Clock::now() - began > patience) {
            std::fputs("nothing happens\n", stderr);
            return 1;
        }
    }
    const std::chrono::duration<double, std::milli> took = Clock::now() - began;
    std::printf("%.0f\n", took.count());
    return 0;
}
