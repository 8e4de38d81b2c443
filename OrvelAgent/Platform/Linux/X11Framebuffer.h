#pragma once

#include <xcb/damage.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <memory>
#include <vector>

#include "OrvelAgent/Platform/Linux/PixelBufferPool.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"

namespace orvel {

struct Unmap {
    std::size_t size = 0;
    void operator()(std::uint8_t* mapping) const;
};

// One rectangle of the root window, with all windows on it but without the pointer, in memory of
// our own; it follows when update() is called and transfers only what changed.
class X11Framebuffer {
public:
    // How the pixels get here, best first.
    enum class Transfer {
        sharedPixmap,  // the server copies what changed into memory that it shares with us
        sharedImage,   // the same in bands as wide as the area
        socket         // it sends them: a server on another computer
    };

    // `area` lies inside of the root window; `x11` outlives the framebuffer. Takes the best
    // transfer that the server can do, from `best` on. Throws X11Failure, also when the server
    // lacks DAMAGE or XFIXES.
    X11Framebuffer(const X11Connection& x11, const Rect& area,
                   Transfer best = Transfer::sharedPixmap);
    ~X11Framebuffer();
    X11Framebuffer(const X11Framebuffer&) = delete;
    X11Framebuffer& operator=(const X11Framebuffer&) = delete;

    Transfer transfer() const { return way; }

    // Whether the event says that something changed since the last update(). It is sent once.
    bool isDamage(const xcb_generic_event_t& event) const;

    // Brings in what changed, after which the pixels are the server's of one moment in each
    // rectangle. Answers where, relative to the area; the first time everything. Waits for the
    // server, once if it shares pixmaps. Throws X11Failure.
    std::vector<Rect> update();

    const Rect& area() const { return place; }
    BgrxPixels pixels() const { return {memory.get(), place.width * 4, place.width, place.height}; }
    // For who draws over them between two updates, and takes that away again.
    std::uint32_t* row(int x, int y) {
        return reinterpret_cast<std::uint32_t*>(memory.get()) +
               static_cast<std::ptrdiff_t>(y) * place.width + x;
    }

private:
    bool shareMemory(Transfer best);
    void createPixmap();
    std::vector<Rect> clipped(const xcb_xfixes_fetch_region_reply_t& region) const;
    void transferBands(const std::vector<Rect>& parts);
    void transferParts(const std::vector<Rect>& parts);

    const X11Connection& x11;
    const Rect place;
    Transfer way = Transfer::socket;
    std::unique_ptr<std::uint8_t, Unmap> memory;
    bool isFirst = true;

    // The server's names of its ends; 0 for what the transfer does not need.
    std::uint8_t damageEvent = 0;
    xcb_damage_damage_t damage = 0;
    xcb_xfixes_region_t damaged = 0;
    xcb_shm_seg_t segment = 0;
    xcb_pixmap_t pixmap = 0;
    xcb_gcontext_t gc = 0;
};

}  // namespace orvel
