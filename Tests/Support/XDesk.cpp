#include "Tests/Support/XDesk.h"

#include <sys/uio.h>
#include <xcb/randr.h>
#include <xcb/render.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>
#include <xcb/xtest.h>

#include <algorithm>

#include "OrvelAgent/Platform/Linux/X11Connection.h"

namespace orvel {

namespace {

xcb_rectangle_t wireRectangle(const Rect& area) {
    return {static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y),
            static_cast<std::uint16_t>(area.width), static_cast<std::uint16_t>(area.height)};
}

}  // namespace

XDesk::XDesk(const std::string& display) : x11(std::make_unique<X11Connection>(display)) {
    pen = xcb_generate_id(x11->get());
    const std::uint32_t noExposures = 0;
    xcb_create_gc(x11->get(), pen, x11->root(), XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    sync();
}

XDesk::~XDesk() = default;

void XDesk::sync() {
    x11->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(x11->get()), "GetInputFocus");
    while (const auto event = x11->pollEvent()) {
        if (event->response_type == 0) {
            throw X11Refusal("a test's request",
                             reinterpret_cast<const xcb_generic_error_t&>(*event).error_code);
        }
    }
}

void XDesk::setPen(std::uint32_t colour) {
    xcb_change_gc(x11->get(), pen, XCB_GC_FOREGROUND, &colour);
}

void XDesk::fill(const Rect& area, std::uint32_t colour) {
    fill(std::vector<Rect>{area}, colour);
}

void XDesk::fill(const std::vector<Rect>& areas, std::uint32_t colour) {
    std::vector<xcb_rectangle_t> rectangles;
    std::transform(areas.begin(), areas.end(), std::back_inserter(rectangles), wireRectangle);
    setPen(colour);
    xcb_poly_fill_rectangle(x11->get(), x11->root(), pen,
                            static_cast<std::uint32_t>(rectangles.size()), rectangles.data());
    sync();
}

void XDesk::put(const Rect& area, const std::vector<std::uint32_t>& colours) {
    // In bands that fit into one request.
    const int rowsAtOnce = std::max(1, 200'000 / (area.width * 4));
    for (int row = 0; row < area.height; row += rowsAtOnce) {
        const int rows = std::min(rowsAtOnce, area.height - row);
        xcb_put_image(x11->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, x11->root(), pen,
                      static_cast<std::uint16_t>(area.width), static_cast<std::uint16_t>(rows),
                      static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y + row), 0,
                      x11->screen().root_depth,
                      static_cast<std::uint32_t>(area.width) * static_cast<std::uint32_t>(rows) * 4,
                      reinterpret_cast<const std::uint8_t*>(
                          &colours[static_cast<std::size_t>(row) * area.width]));
    }
    sync();
}

void XDesk::copy(const Rect& from, int toX, int toY) {
    xcb_copy_area(x11->get(), x11->root(), x11->root(), pen, static_cast<std::int16_t>(from.x),
                  static_cast<std::int16_t>(from.y), static_cast<std::int16_t>(toX),
                  static_cast<std::int16_t>(toY), static_cast<std::uint16_t>(from.width),
                  static_cast<std::uint16_t>(from.height));
    sync();
}

std::uint32_t XDesk::openWindow(const Rect& area, std::uint32_t colour) {
    const auto window = xcb_generate_id(x11->get());
    const std::uint32_t values[] = {colour, 1};
    xcb_create_window(x11->get(), XCB_COPY_FROM_PARENT, window, x11->root(),
                      static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y),
                      static_cast<std::uint16_t>(area.width),
                      static_cast<std::uint16_t>(area.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(x11->get(), window);
    sync();
    return window;
}

void XDesk::closeWindow(std::uint32_t window) {
    xcb_destroy_window(x11->get(), window);
    sync();
}

void XDesk::movePointer(int x, int y) {
    constexpr std::uint8_t absolute = 0;
    xcb_test_fake_input(x11->get(), XCB_MOTION_NOTIFY, absolute, XCB_CURRENT_TIME, x11->root(),
                        static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
    sync();
}

void XDesk::click(int x, int y) {
    movePointer(x, y);
    for (const std::uint8_t what : {XCB_BUTTON_PRESS, XCB_BUTTON_RELEASE})
        xcb_test_fake_input(x11->get(), what, XCB_BUTTON_INDEX_1, XCB_CURRENT_TIME, XCB_NONE, 0, 0,
                            0);
    sync();
}

void XDesk::warpPointer(int x, int y) {
    xcb_warp_pointer(x11->get(), XCB_NONE, x11->root(), 0, 0, 0, 0, static_cast<std::int16_t>(x),
                     static_cast<std::int16_t>(y));
    sync();
}

void XDesk::shapePointer(int width, int height, std::uint32_t argb) {
    auto* connection = x11->get();
    x11->reply<xcb_render_query_version_reply>(xcb_render_query_version(connection, 0, 11),
                                               "RenderQueryVersion");
    const auto formats = x11->reply<xcb_render_query_pict_formats_reply>(
        xcb_render_query_pict_formats(connection), "RenderQueryPictFormats");
    xcb_render_pictformat_t format = 0;
    for (auto each = xcb_render_query_pict_formats_formats_iterator(formats.get()); each.rem;
         xcb_render_pictforminfo_next(&each)) {
        if (each.data->depth == 32 && each.data->direct.alpha_shift == 24 &&
            each.data->direct.red_shift == 16)
            format = each.data->id;
    }
    const auto pixmap = xcb_generate_id(connection);
    xcb_create_pixmap(connection, 32, pixmap, x11->root(), static_cast<std::uint16_t>(width),
                      static_cast<std::uint16_t>(height));
    const auto picture = xcb_generate_id(connection);
    xcb_render_create_picture(connection, picture, pixmap, format, 0, nullptr);
    const auto channel = [&](int shift) {
        return static_cast<std::uint16_t>((argb >> shift & 0xFF) * 0x101);
    };
    const xcb_rectangle_t all = wireRectangle({0, 0, width, height});
    xcb_render_fill_rectangles(connection, XCB_RENDER_PICT_OP_SRC, picture,
                               {channel(16), channel(8), channel(0), channel(24)}, 1, &all);
    const auto cursor = xcb_generate_id(connection);
    xcb_render_create_cursor(connection, cursor, picture, 0, 0);
    xcb_change_window_attributes(connection, x11->root(), XCB_CW_CURSOR, &cursor);
    xcb_free_cursor(connection, cursor);
    xcb_render_free_picture(connection, picture);
    xcb_free_pixmap(connection, pixmap);
    sync();
}

void XDesk::setMonitor(const std::string& name, const Rect& area, bool isPrimary) {
    auto* connection = x11->get();
    x11->reply<xcb_randr_query_version_reply>(xcb_randr_query_version(connection, 1, 5),
                                              "RRQueryVersion");
    const auto atom = x11->reply<xcb_intern_atom_reply>(
        xcb_intern_atom(connection, false, static_cast<std::uint16_t>(name.size()), name.data()),
        "InternAtom");
    struct {
        std::uint8_t majorCode = 0, minorCode = 0;  // both filled in by xcb
        std::uint16_t words = 0;
        xcb_window_t window = 0;
        xcb_randr_monitor_info_t info{};
        xcb_randr_output_t output = 0;
    } monitor;
    monitor.info.name = atom->atom;
    monitor.info.primary = isPrimary;
    monitor.info.x = static_cast<std::int16_t>(area.x);
    monitor.info.y = static_cast<std::int16_t>(area.y);
    monitor.info.width = static_cast<std::uint16_t>(area.width);
    monitor.info.height = static_cast<std::uint16_t>(area.height);
    if (!hasOwnMonitors) {
        // Who has the output replaces the monitor that the server made for it.
        const auto resources = x11->reply<xcb_randr_get_screen_resources_current_reply>(
            xcb_randr_get_screen_resources_current(connection, x11->root()),
            "RRGetScreenResources");
        monitor.info.nOutput = 1;
        monitor.output = *xcb_randr_get_screen_resources_current_outputs(resources.get());
        hasOwnMonitors = true;
    }
    monitor.window = x11->root();
    // xcb_randr_set_monitor() of libxcb 1.15 sends an uninitialised part.
    const xcb_protocol_request_t request{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
    iovec parts[3]{};  // xcb itself uses the first two
    parts[2] = {&monitor, sizeof monitor - (monitor.info.nOutput ? 0 : sizeof monitor.output)};
    const unsigned int sequence =
        xcb_send_request(connection, XCB_REQUEST_CHECKED, parts + 2, &request);
    x11->check({sequence}, "RRSetMonitor");
}

void XDesk::removeMonitor(const std::string& name) {
    const auto atom = x11->reply<xcb_intern_atom_reply>(
        xcb_intern_atom(x11->get(), false, static_cast<std::uint16_t>(name.size()), name.data()),
        "InternAtom");
    x11->check(xcb_randr_delete_monitor_checked(x11->get(), x11->root(), atom->atom),
               "RRDeleteMonitor");
}

void XDesk::configureOutput(std::uint32_t mode, int width, int height) {
    auto* connection = x11->get();
    const auto resources = x11->reply<xcb_randr_get_screen_resources_current_reply>(
        xcb_randr_get_screen_resources_current(connection, x11->root()), "RRGetScreenResources");
    const auto output = *xcb_randr_get_screen_resources_current_outputs(resources.get());
    const auto crtc = *xcb_randr_get_screen_resources_current_crtcs(resources.get());
    const auto configure = [&](xcb_randr_mode_t wanted, std::uint32_t outputs) {
        x11->reply<xcb_randr_set_crtc_config_reply>(
            xcb_randr_set_crtc_config(connection, crtc, XCB_CURRENT_TIME,
                                      resources->config_timestamp, 0, 0, wanted,
                                      XCB_RANDR_ROTATION_ROTATE_0, outputs, &output),
            "RRSetCrtcConfig");
    };
    // As desktops do: off, another size of the whole, on.
    configure(XCB_NONE, 0);
    if (mode == XCB_NONE) return;
    x11->check(xcb_randr_add_output_mode_checked(connection, output, mode), "RRAddOutputMode");
    x11->check(xcb_randr_set_screen_size_checked(connection, x11->root(),
                                                 static_cast<std::uint16_t>(width),
                                                 static_cast<std::uint16_t>(height), 100, 100),
               "RRSetScreenSize");
    configure(mode, 1);
}

void XDesk::resize(int width, int height) {
    x11->reply<xcb_randr_query_version_reply>(xcb_randr_query_version(x11->get(), 1, 5),
                                              "RRQueryVersion");
    xcb_randr_mode_info_t mode{};
    mode.width = static_cast<std::uint16_t>(width);
    mode.height = static_cast<std::uint16_t>(height);
    const std::string name = "mode " + std::to_string(++modesMade);
    mode.name_len = static_cast<std::uint16_t>(name.size());
    const auto made = x11->reply<xcb_randr_create_mode_reply>(
        xcb_randr_create_mode(x11->get(), x11->root(), mode,
                              static_cast<std::uint32_t>(name.size()), name.data()),
        "RRCreateMode");
    configureOutput(made->mode, width, height);
}

void XDesk::switchOff() {
    x11->reply<xcb_randr_query_version_reply>(xcb_randr_query_version(x11->get(), 1, 5),
                                              "RRQueryVersion");
    configureOutput(XCB_NONE, 0, 0);
}

}  // namespace orvel
