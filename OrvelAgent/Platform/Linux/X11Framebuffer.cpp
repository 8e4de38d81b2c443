#include "OrvelAgent/Platform/Linux/X11Framebuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace orvel {

namespace {

constexpr auto allPlanes = ~std::uint32_t{0};
// Beyond the last pixel; SIMD code may read a little ahead.
constexpr std::size_t padding = 64;
// Bands nearer to each other than this are fetched as one.
constexpr int bandGap = 8;

// Sent over the socket, rectangles cost a request each; more than this become one.
constexpr std::size_t maxParts = 32;

Rect boundingBox(const std::vector<Rect>& parts) {
    Rect box = parts.front();
    for (const Rect& part : parts) {
        const int right = std::max(box.x + box.width, part.x + part.width);
        const int bottom = std::max(box.y + box.height, part.y + part.height);
        box.x = std::min(box.x, part.x);
        box.y = std::min(box.y, part.y);
        box.width = right - box.x;
        box.height = bottom - box.y;
    }
    return box;
}

}  // namespace

void Unmap::operator()(std::uint8_t* mapping) const {
    munmap(mapping, size);
}

X11Framebuffer::X11Framebuffer(const X11Connection& connection, const Rect& area, Transfer best)
    : x11(connection), place(area) {
    const auto* damageExtension = x11.extension(xcb_damage_id);
    if (!damageExtension) throw X11Failure("the X server lacks the DAMAGE extension");
    if (!x11.extension(xcb_xfixes_id)) throw X11Failure("the X server lacks the XFIXES extension");
    damageEvent = damageExtension->first_event;
    // Either must be told which version is spoken before it is used.
    x11.reply<xcb_damage_query_version_reply>(xcb_damage_query_version(x11.get(), 1, 1),
                                              "DamageQueryVersion");
    const auto xfixes = x11.reply<xcb_xfixes_query_version_reply>(
        xcb_xfixes_query_version(x11.get(), 4, 0), "XFixesQueryVersion");
    if (xfixes->major_version < 2) throw X11Failure("the X server's XFIXES extension is too old");
    x11.requireBgrxPixels();

    if (shareMemory(best)) {
        createPixmap();
    } else {
        const std::size_t size = static_cast<std::size_t>(place.width) * place.height * 4 + padding;
        void* mapping =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapping == MAP_FAILED) throw X11Failure("no memory for the screen's pixels");
        memory = {static_cast<std::uint8_t*>(mapping), Unmap{size}};
    }

    damaged = xcb_generate_id(x11.get());
    x11.check(xcb_xfixes_create_region_checked(x11.get(), damaged, 0, nullptr),
              "XFixesCreateRegion");
    damage = xcb_generate_id(x11.get());
    x11.check(
        xcb_damage_create_checked(x11.get(), damage, x11.root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY),
        "DamageCreate");
}

X11Framebuffer::~X11Framebuffer() {
    auto* connection = x11.get();
    if (damage) xcb_damage_destroy(connection, damage);
    if (damaged) xcb_xfixes_destroy_region(connection, damaged);
    if (gc) xcb_free_gc(connection, gc);
    if (pixmap) xcb_free_pixmap(connection, pixmap);
    if (segment) xcb_shm_detach(connection, segment);
}

// The memory is a descriptor handed to the server: it needs no common IPC namespace, and nothing
// of it stays behind however the process ends. False where the server cannot take it.
bool X11Framebuffer::shareMemory(Transfer best) {
    if (best == Transfer::socket || !x11.extension(xcb_shm_id)) return false;
    const auto version =
        x11.reply<xcb_shm_query_version_reply>(xcb_shm_query_version(x11.get()), "ShmQueryVersion");
    if (std::pair<int, int>(version->major_version, version->minor_version) < std::pair(1, 2))
        return false;

    const std::size_t size = static_cast<std::size_t>(place.width) * place.height * 4 + padding;
    const int descriptor = memfd_create("orvel-screen", MFD_CLOEXEC);
    if (descriptor < 0 || ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
        const int error = errno;
        if (descriptor >= 0) close(descriptor);
        throw X11Failure(std::string("no shared memory: ") + std::strerror(error));
    }
    void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (mapping == MAP_FAILED) {
        close(descriptor);
        throw X11Failure("no memory for the screen's pixels");
    }
    memory = {static_cast<std::uint8_t*>(mapping), Unmap{size}};

    segment = xcb_generate_id(x11.get());
    // Closes the descriptor. Refused when the server cannot see our memory.
    try {
        x11.check(xcb_shm_attach_fd_checked(x11.get(), segment, descriptor, false), "ShmAttachFd");
    } catch (const X11Refusal&) {
        segment = 0;
        return false;
    }
    way = best == Transfer::sharedPixmap && version->shared_pixmaps &&
                  version->pixmap_format == XCB_IMAGE_FORMAT_Z_PIXMAP
              ? Transfer::sharedPixmap
              : Transfer::sharedImage;
    return true;
}

void X11Framebuffer::createPixmap() {
    if (way != Transfer::sharedPixmap) return;
    pixmap = xcb_generate_id(x11.get());
    try {
        x11.check(xcb_shm_create_pixmap_checked(x11.get(), pixmap, x11.root(),
                                                static_cast<std::uint16_t>(place.width),
                                                static_cast<std::uint16_t>(place.height),
                                                x11.screen().root_depth, segment, 0),
                  "ShmCreatePixmap");
    } catch (const X11Refusal&) {
        pixmap = 0;
        way = Transfer::sharedImage;
        return;
    }
    gc = xcb_generate_id(x11.get());
    const std::array<std::uint32_t, 2> values{XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    x11.check(
        xcb_create_gc_checked(x11.get(), gc, x11.root(),
                              XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, values.data()),
        "CreateGC");
}

bool X11Framebuffer::isDamage(const xcb_generic_event_t& event) const {
    return (event.response_type & 0x7F) == damageEvent + XCB_DAMAGE_NOTIFY;
}

std::vector<Rect> X11Framebuffer::update() {
    auto* connection = x11.get();
    // What is drawn after this is reported again: nothing falls between two updates.
    xcb_damage_subtract(connection, damage, XCB_NONE, damaged);
    if (way == Transfer::sharedPixmap) {
        // The damage itself clips the copy, so one round trip tells where and brings what.
        xcb_xfixes_set_gc_clip_region(connection, gc, isFirst ? XCB_NONE : damaged,
                                      static_cast<std::int16_t>(-place.x),
                                      static_cast<std::int16_t>(-place.y));
        xcb_copy_area(connection, x11.root(), pixmap, gc, static_cast<std::int16_t>(place.x),
                      static_cast<std::int16_t>(place.y), 0, 0,
                      static_cast<std::uint16_t>(place.width),
                      static_cast<std::uint16_t>(place.height));
    }
    const auto region = x11.reply<xcb_xfixes_fetch_region_reply>(
        xcb_xfixes_fetch_region(connection, damaged), "XFixesFetchRegion");
    std::vector<Rect> parts =
        isFirst ? std::vector<Rect>{{0, 0, place.width, place.height}} : clipped(*region);
    if (!parts.empty()) {
        if (way == Transfer::sharedImage) transferBands(parts);
        if (way == Transfer::socket) transferParts(parts);
    }
    isFirst = false;
    return parts;
}

std::vector<Rect> X11Framebuffer::clipped(const xcb_xfixes_fetch_region_reply_t& region) const {
    const auto* rectangles = xcb_xfixes_fetch_region_rectangles(&region);
    const int count = xcb_xfixes_fetch_region_rectangles_length(&region);
    std::vector<Rect> parts;
    for (int i = 0; i < count; ++i) {
        const auto& each = rectangles[i];
        const int left = std::max(each.x - place.x, 0), top = std::max(each.y - place.y, 0);
        const int right = std::min(each.x + each.width - place.x, place.width);
        const int bottom = std::min(each.y + each.height - place.y, place.height);
        if (left < right && top < bottom) parts.push_back({left, top, right - left, bottom - top});
    }
    return parts;
}

// As wide as the area, rows land where they belong.
void X11Framebuffer::transferBands(const std::vector<Rect>& parts) {
    std::vector<std::pair<int, int>> bands;  // from and to row, not overlapping
    std::vector<Rect> sorted = parts;
    std::sort(sorted.begin(), sorted.end(), [](auto& a, auto& b) { return a.y < b.y; });
    for (const Rect& part : sorted) {
        const int bottom = part.y + part.height;
        if (!bands.empty() && part.y <= bands.back().second + bandGap) {
            bands.back().second = std::max(bands.back().second, bottom);
        } else {
            bands.emplace_back(part.y, bottom);
        }
    }
    std::vector<xcb_shm_get_image_cookie_t> asked;
    asked.reserve(bands.size());
    for (const auto& [top, bottom] : bands) {
        asked.push_back(xcb_shm_get_image(
            x11.get(), x11.root(), static_cast<std::int16_t>(place.x),
            static_cast<std::int16_t>(place.y + top), static_cast<std::uint16_t>(place.width),
            static_cast<std::uint16_t>(bottom - top), allPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP, segment,
            static_cast<std::uint32_t>(top) * static_cast<std::uint32_t>(place.width) * 4));
    }
    for (const auto& cookie : asked)
        x11.reply<xcb_shm_get_image_reply>(cookie, "ShmGetImage");
}

void X11Framebuffer::transferParts(const std::vector<Rect>& parts) {
    const auto wanted = parts.size() > maxParts ? std::vector<Rect>{boundingBox(parts)} : parts;
    std::vector<xcb_get_image_cookie_t> asked;
    asked.reserve(wanted.size());
    for (const Rect& part : wanted) {
        asked.push_back(xcb_get_image(x11.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, x11.root(),
                                      static_cast<std::int16_t>(place.x + part.x),
                                      static_cast<std::int16_t>(place.y + part.y),
                                      static_cast<std::uint16_t>(part.width),
                                      static_cast<std::uint16_t>(part.height), allPlanes));
    }
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const Rect& part = wanted[i];
        const auto image = x11.reply<xcb_get_image_reply>(asked[i], "GetImage");
        const auto rowSize = static_cast<std::size_t>(part.width) * 4;
        const auto* row = xcb_get_image_data(image.get());
        if (static_cast<std::size_t>(xcb_get_image_data_length(image.get())) <
            rowSize * static_cast<std::size_t>(part.height)) {
            throw X11Failure("the X server sent less of an image than was asked for");
        }
        for (int y = part.y; y < part.y + part.height; ++y, row += rowSize) {
            std::memcpy(memory.get() + (static_cast<std::size_t>(y) * place.width + part.x) * 4,
                        row, rowSize);
        }
    }
}

}  // namespace orvel
