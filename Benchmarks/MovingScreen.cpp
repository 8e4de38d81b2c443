// orvel-moving-screen: a window whose picture changes in a known manner at a steady rate and at
// almost no cost, so that what is measured beside it is the agent. Everything is drawn into pixmaps
// of the X server before the first frame; a frame is then one or two copies inside the server.

#include <time.h>
#include <xcb/xcb.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

volatile std::sig_atomic_t ended = 0;

struct Size {
    int width;
    int height;
};

struct Point {
    int x;
    int y;
};

constexpr int lineHeight = 16;
constexpr std::uint32_t paper = 0xF4F1E8;
constexpr std::uint32_t ink = 0x22262B;

// The connection, the window and what is drawn with. Lives as long as the program.
class Stage {
public:
    Stage(Size size, Point at, bool whole)
        : connection(xcb_connect(nullptr, nullptr), &xcb_disconnect), extent(size) {
        if (xcb_connection_has_error(link())) {
            throw std::runtime_error("no X display answers");
        }
        screen = xcb_setup_roots_iterator(xcb_get_setup(link())).data;
        if (whole) {
            extent = {screen->width_in_pixels, screen->height_in_pixels};
            at = {0, 0};
        }
        openWindow(at, whole);
        const std::string name = "fixed";
        const xcb_font_t font = xcb_generate_id(link());
        xcb_open_font(link(), font, static_cast<std::uint16_t>(name.size()), name.data());
        pen = xcb_generate_id(link());
        const std::array<std::uint32_t, 2> values{font, 0};  // no event for each copy
        xcb_create_gc(link(), pen, window, XCB_GC_FONT | XCB_GC_GRAPHICS_EXPOSURES, values.data());
    }

    Size size() const { return extent; }
    xcb_drawable_t target() const { return window; }

    // Returns when the window is seen: what is drawn before is lost.
    void show() {
        xcb_map_window(link(), window);
        xcb_flush(link());
        while (auto* event = xcb_wait_for_event(link())) {
            const bool exposed = (event->response_type & 0x7F) == XCB_EXPOSE;
            std::free(event);
            if (exposed) {
                return;
            }
        }
    }

    xcb_pixmap_t pixmap(Size of) {
        const xcb_pixmap_t made = xcb_generate_id(link());
        xcb_create_pixmap(link(), screen->root_depth, made, window,
                          static_cast<std::uint16_t>(of.width),
                          static_cast<std::uint16_t>(of.height));
        return made;
    }

    void fill(xcb_drawable_t on, Point at, Size of, std::uint32_t colour) {
        xcb_change_gc(link(), pen, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t area{static_cast<std::int16_t>(at.x), static_cast<std::int16_t>(at.y),
                                   static_cast<std::uint16_t>(of.width),
                                   static_cast<std::uint16_t>(of.height)};
        xcb_poly_fill_rectangle(link(), on, pen, 1, &area);
    }

    void text(xcb_drawable_t on, Point at, const std::string& line, std::uint32_t colour,
              std::uint32_t background) {
        const std::array<std::uint32_t, 2> colours{colour, background};
        xcb_change_gc(link(), pen, XCB_GC_FOREGROUND | XCB_GC_BACKGROUND, colours.data());
        const auto length = static_cast<std::uint8_t>(std::min<std::size_t>(line.size(), 255));
        xcb_image_text_8(link(), length, on, pen, static_cast<std::int16_t>(at.x),
                         static_cast<std::int16_t>(at.y), line.data());
    }

    // Puts 32-bit pixels, in bands small enough for one request each.
    void put(xcb_drawable_t on, Point at, Size of, const std::vector<std::uint32_t>& pixels) {
        const int band = std::max(1, 200'000 / (of.width * 4));
        for (int row = 0; row < of.height; row += band) {
            const int rows = std::min(band, of.height - row);
            xcb_put_image(link(), XCB_IMAGE_FORMAT_Z_PIXMAP, on, pen,
                          static_cast<std::uint16_t>(of.width), static_cast<std::uint16_t>(rows),
                          static_cast<std::int16_t>(at.x), static_cast<std::int16_t>(at.y + row), 0,
                          screen->root_depth, static_cast<std::uint32_t>(of.width * rows * 4),
                          reinterpret_cast<const std::uint8_t*>(pixels.data() +
                                                                std::ptrdiff_t{row} * of.width));
        }
    }

    void copy(xcb_pixmap_t from, Point source, Point at, Size of) {
        xcb_copy_area(link(), from, window, pen, static_cast<std::int16_t>(source.x),
                      static_cast<std::int16_t>(source.y), static_cast<std::int16_t>(at.x),
                      static_cast<std::int16_t>(at.y), static_cast<std::uint16_t>(of.width),
                      static_cast<std::uint16_t>(of.height));
    }

    // What the server itself paints wherever the window comes to light.
    void setBackground(xcb_pixmap_t picture) {
        xcb_change_window_attributes(link(), window, XCB_CW_BACK_PIXMAP, &picture);
        xcb_clear_area(link(), 0, window, 0, 0, 0, 0);
    }

    // Waits until the server has drawn everything: frames cannot pile up in the socket. False when
    // the server is gone.
    bool sync() {
        std::free(xcb_get_input_focus_reply(link(), xcb_get_input_focus(link()), nullptr));
        while (auto* event = xcb_poll_for_event(link())) {
            std::free(event);
        }
        return !xcb_connection_has_error(link());
    }

private:
    std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection;
    xcb_screen_t* screen = nullptr;
    Size extent;
    xcb_window_t window = 0;
    xcb_gcontext_t pen = 0;

    xcb_connection_t* link() const { return connection.get(); }

    void openWindow(Point at, bool whole) {
        window = xcb_generate_id(link());
        // Over the whole screen it stands above the window manager, without a frame.
        const std::array<std::uint32_t, 3> values{paper, whole ? 1U : 0U, XCB_EVENT_MASK_EXPOSURE};
        xcb_create_window(
            link(), XCB_COPY_FROM_PARENT, window, screen->root, static_cast<std::int16_t>(at.x),
            static_cast<std::int16_t>(at.y), static_cast<std::uint16_t>(extent.width),
            static_cast<std::uint16_t>(extent.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK,
            values.data());
        const std::string title = "Moving screen";
        xcb_change_property(link(), XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME,
                            XCB_ATOM_STRING, 8, static_cast<std::uint32_t>(title.size()),
                            title.data());
        // Position and size were chosen by the user (1 | 2): window managers leave them alone.
        const std::array<std::uint32_t, 18> hints{1 | 2};
        xcb_change_property(link(), XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, hints.size(), hints.data());
    }
};

// One way of moving. frame() draws the picture with this number, counted from 0.
class Scene {
public:
    virtual ~Scene() = default;
    virtual void frame(std::int64_t number) = 0;
};

std::string sentence(std::mt19937& random, std::size_t letters) {
    static const std::array<const char*, 16> words{
        "window", "frame",  "pixel", "light", "screen", "colour", "river",  "between",
        "and",    "moving", "the",   "of",    "slowly", "stone",  "letter", "seven"};
    std::string line;
    while (line.size() < letters) {
        line += words[random() % words.size()];
        line += ' ';
    }
    line.resize(letters);
    return line;
}

// Soft coloured waves under a fine grain: what a film costs an encoder.
std::vector<std::uint32_t> picture(Size of, double phase) {
    std::mt19937 random(7);
    std::vector<double> waves(static_cast<std::size_t>(of.width));
    for (std::size_t x = 0; x < waves.size(); ++x) {
        waves[x] = std::sin(static_cast<double>(x) / 131.0 - phase);
    }
    std::vector<std::uint32_t> pixels;
    pixels.reserve(waves.size() * static_cast<std::size_t>(of.height));
    for (int y = 0; y < of.height; ++y) {
        const double down = std::sin(y / 97.0 + phase);
        for (const double across : waves) {
            const auto grain = static_cast<int>(random() & 7);
            const auto level = [&](double offset) {
                const auto value = static_cast<int>(120 + 40 * (across + down + offset)) + grain;
                return static_cast<std::uint32_t>(std::clamp(value, 0, 255));
            };
            pixels.push_back(level(down) << 16 | level(0) << 8 | level(-across));
        }
    }
    return pixels;
}

// A page of text and pictures, twice as high as the window and without an end: four pixels up each
// frame.
class Scroll : public Scene {
public:
    explicit Scroll(Stage& on)
        : stage(on), pageHeight(2 * on.size().height), page(on.pixmap({width(), pageHeight})) {
        std::mt19937 random(1);
        stage.fill(page, {0, 0}, {width(), pageHeight}, paper);
        for (int y = 0; y < pageHeight; y += lineHeight) {
            stage.text(page, {24, y + 12}, sentence(random, 240), ink, paper);
        }
        const Size inset{width() / 3, pageHeight / 6};
        const std::vector<std::uint32_t> pixels = picture(inset, 1.0);
        for (int part = 0; part < 4; ++part) {
            stage.put(page, {width() / 2, pageHeight * part / 4}, inset, pixels);
        }
    }

    void frame(std::int64_t number) override {
        const auto offset = static_cast<int>(number * 4 % pageHeight);
        const int first = std::min(stage.size().height, pageHeight - offset);
        stage.copy(page, {0, offset}, {0, 0}, {width(), first});
        if (first < stage.size().height) {
            stage.copy(page, {0, 0}, {0, first}, {width(), stage.size().height - first});
        }
    }

    xcb_pixmap_t drawn() const { return page; }

private:
    Stage& stage;
    int pageHeight;
    xcb_pixmap_t page;

    int width() const { return stage.size().width; }
};

// Every pixel changes in every frame: a short film, forwards and backwards.
class Film : public Scene {
public:
    explicit Film(Stage& on) : stage(on) {
        for (int number = 0; number < length; ++number) {
            pictures.push_back(stage.pixmap(stage.size()));
            stage.put(pictures.back(), {0, 0}, stage.size(), picture(stage.size(), number * 0.06));
        }
    }

    void frame(std::int64_t number) override {
        const auto step = static_cast<int>(number % (2 * length - 2));
        const auto index = static_cast<std::size_t>(step < length ? step : 2 * length - 2 - step);
        stage.copy(pictures[index], {0, 0}, {0, 0}, stage.size());
    }

private:
    static constexpr int length = 12;
    Stage& stage;
    std::vector<xcb_pixmap_t> pictures;
};

// A page that somebody types on: one letter in every fourth frame, line after line.
class Typing : public Scene {
public:
    explicit Typing(Stage& on) : stage(on) {}

    void frame(std::int64_t number) override {
        if (number % 4 != 0) {
            return;
        }
        const auto letter = number / 4;
        const auto column = static_cast<int>(letter % columns);
        const auto row = static_cast<int>(letter / columns % rows());
        if (column == 0) {
            if (row == 0) {
                stage.fill(stage.target(), {0, 0}, stage.size(), paper);
            }
            line = sentence(random, columns);
        }
        stage.text(stage.target(), {40 + column * 6, 40 + row * lineHeight},
                   std::string(1, line[static_cast<std::size_t>(column)]), ink, paper);
    }

private:
    static constexpr int columns = 120;
    Stage& stage;
    std::mt19937 random{1};
    std::string line;

    int rows() const { return std::max(1, stage.size().height / lineHeight - 4); }
};

// The same page, and nothing moves.
class Still : public Scene {
public:
    explicit Still(Stage& on) : page(on) { on.setBackground(page.drawn()); }

    void frame(std::int64_t) override {}

private:
    Scroll page;
};

std::unique_ptr<Scene> makeScene(const std::string& mode, Stage& stage) {
    if (mode == "scroll") {
        return std::make_unique<Scroll>(stage);
    }
    if (mode == "film") {
        return std::make_unique<Film>(stage);
    }
    if (mode == "typing") {
        return std::make_unique<Typing>(stage);
    }
    return std::make_unique<Still>(stage);
}

// Draws until told to end, each frame at its own time; a late frame is drawn at once and the
// rhythm starts again from there. Returns false when the display goes away.
bool play(Scene& scene, Stage& stage, int rate, double seconds) {
    const std::int64_t period = 1'000'000'000 / rate;
    const auto frames = seconds > 0 ? static_cast<std::int64_t>(seconds * rate) : INT64_MAX;
    timespec due{};
    clock_gettime(CLOCK_MONOTONIC, &due);
    for (std::int64_t number = 0; number < frames && !ended; ++number) {
        scene.frame(number);
        if (!stage.sync()) {
            return false;
        }
        due.tv_nsec += period;
        if (due.tv_nsec >= 1'000'000'000) {
            due.tv_nsec -= 1'000'000'000;
            ++due.tv_sec;
        }
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (std::pair(now.tv_sec, now.tv_nsec) > std::pair(due.tv_sec, due.tv_nsec)) {
            due = now;
        } else {
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("A window whose picture moves steadily and cheaply.", "orvel-moving-screen");
    std::string mode = "scroll";
    int rate = 60;
    double seconds = 0;
    std::pair<int, int> size{960, 540};
    std::pair<int, int> at{0, 0};
    bool whole = false;
    app.add_option("--mode", mode, "What moves")
        ->check(CLI::IsMember({"scroll", "film", "typing", "still"}))
        ->capture_default_str();
    app.add_option("--rate", rate, "Frames a second")->check(CLI::Range(2, 240));
    app.add_option("--seconds", seconds, "How long; until ended when absent");
    app.add_option("--size", size, "Width and height in pixels")->check(CLI::Range(64, 8192));
    app.add_option("--at", at, "Left and top in pixels");
    app.add_flag("--whole", whole, "Cover the whole screen, without a window frame");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    std::signal(SIGTERM, [](int) { ended = 1; });
    std::signal(SIGINT, [](int) { ended = 1; });
    try {
        Stage stage({size.first, size.second}, {at.first, at.second}, whole);
        const auto scene = makeScene(mode, stage);
        stage.show();
        if (play(*scene, stage, rate, seconds)) {
            return 0;
        }
        std::fputs("orvel: the display is gone\n", stderr);
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "orvel: %s\n", error.what());
    }
    return 1;
}
