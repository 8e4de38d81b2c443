#include "OrvelAgent/Platform/Linux/X11Pointer.h"

#include <xcb/xinput.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace orvel {

namespace {

// A colour laid over another; `over` is already multiplied with its alpha.
std::uint32_t blend(std::uint32_t over, std::uint32_t under) {
    const std::uint32_t alpha = over >> 24;
    if (alpha == 255) return over;
    if (alpha == 0 && over == 0) return under;
    std::uint32_t result = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        const std::uint32_t below = (under >> shift & 255) * (255 - alpha);
        // Rounded division by 255. The sum of what is no valid pixel may exceed it.
        const std::uint32_t sum = (over >> shift & 255) + (below + 127) / 255;
        result |= std::min<std::uint32_t>(sum, 255) << shift;
    }
    return result;
}

// The part of `area` that lies in the framebuffer, in its coordinates.
Rect inside(const Rect& area, const Rect& framebuffer) {
    const int left = std::max(area.x, framebuffer.x), top = std::max(area.y, framebuffer.y);
    const int right = std::min(area.x + area.width, framebuffer.x + framebuffer.width);
    const int bottom = std::min(area.y + area.height, framebuffer.y + framebuffer.height);
    if (left >= right || top >= bottom) return {};
    return {left - framebuffer.x, top - framebuffer.y, right - left, bottom - top};
}

}  // namespace

X11Pointer::X11Pointer(const X11Connection& connection) : x11(connection) {
    const auto* xfixes = x11.extension(xcb_xfixes_id);
    if (!xfixes) throw X11Failure("the X server lacks the XFIXES extension");
    xfixesEvent = xfixes->first_event;
    x11.reply<xcb_xfixes_query_version_reply>(xcb_xfixes_query_version(x11.get(), 4, 0),
                                              "XFixesQueryVersion");
    x11.check(xcb_xfixes_select_cursor_input_checked(x11.get(), x11.root(),
                                                     XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR),
              "XFixesSelectCursorInput");

    const auto* input = x11.extension(xcb_input_id);
    if (!input) return;  // its place is then seen with the next picture
    const auto version = x11.reply<xcb_input_xi_query_version_reply>(
        xcb_input_xi_query_version(x11.get(), 2, 2), "XIQueryVersion");
    if (version->major_version < 2) return;
    const struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } wanted{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_MOTION};
    x11.check(xcb_input_xi_select_events_checked(x11.get(), x11.root(), 1, &wanted.head),
              "XISelectEvents");
    inputOpcode = input->major_opcode;
}

bool X11Pointer::handle(const xcb_generic_event_t& event) {
    const int type = event.response_type & 0x7F;
    if (type == xfixesEvent + XCB_XFIXES_CURSOR_NOTIFY) {
        reshaped = true;
        return true;
    }
    if (type != XCB_GE_GENERIC || inputOpcode == 0) return false;
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
    if (generic.extension != inputOpcode || generic.event_type != XCB_INPUT_RAW_MOTION)
        return false;
    moved = true;
    return true;
}

void X11Pointer::beginLook() {
    if (reshaped) shapeAsked = xcb_xfixes_get_cursor_image(x11.get());
    placeAsked = xcb_query_pointer(x11.get(), x11.root());
    moved = reshaped = false;
}

bool X11Pointer::finishLook() {
    bool differs = false;
    if (const auto asked = std::exchange(shapeAsked, std::nullopt)) {
        xcb_generic_error_t* error = nullptr;
        const X11Message<xcb_xfixes_get_cursor_image_reply_t> image(
            xcb_xfixes_get_cursor_image_reply(x11.get(), *asked, &error));
        const X11Message<xcb_generic_error_t> refused(error);  // there is no pointer at present
        shape = {};
        if (image) {
            const auto* pixels = xcb_xfixes_get_cursor_image_cursor_image(image.get());
            shape = {
                image->width,
                image->height,
                image->xhot,
                image->yhot,
                {pixels, pixels + xcb_xfixes_get_cursor_image_cursor_image_length(image.get())}};
            if (shape.pixels.size() < static_cast<std::size_t>(shape.width) * shape.height)
                shape = {};
        }
        differs = true;
    }
    const auto place = x11.reply<xcb_query_pointer_reply>(placeAsked, "QueryPointer");
    differs = differs || place->root_x != x || place->root_y != y;
    x = place->root_x;
    y = place->root_y;
    return differs;
}

Rect X11Pointer::bounds() const {
    return {x - shape.hotX, y - shape.hotY, shape.width, shape.height};
}

X11Pointer::Drawn::Drawn(const X11Pointer& pointer, X11Framebuffer& target)
    : framebuffer(target), part(inside(pointer.bounds(), target.area())) {
    if (part.isEmpty()) return;
    const Rect bounds = pointer.bounds();
    const int skipX = part.x + target.area().x - bounds.x;
    const int skipY = part.y + target.area().y - bounds.y;
    hidden.resize(static_cast<std::size_t>(part.width) * part.height);
    for (int row = 0; row < part.height; ++row) {
        auto* pixels = framebuffer.row(part.x, part.y + row);
        auto* saved = &hidden[static_cast<std::size_t>(row) * part.width];
        const auto* over =
            &pointer.shape.pixels[static_cast<std::size_t>(skipY + row) * bounds.width + skipX];
        std::copy_n(pixels, part.width, saved);
        std::transform(over, over + part.width, saved, pixels, blend);
    }
}

X11Pointer::Drawn::~Drawn() {
    for (int row = 0; row < part.height; ++row) {
        std::copy_n(&hidden[static_cast<std::size_t>(row) * part.width], part.width,
                    framebuffer.row(part.x, part.y + row));
    }
}

}  // namespace orvel
