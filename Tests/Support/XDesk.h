#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"

namespace orvel {

class X11Connection;

// What somebody at the computer does with an X display: draws, moves the pointer, plugs monitors.
// Each call returns when the server has done it, and throws std::runtime_error when it refuses.
class XDesk {
public:
    explicit XDesk(const std::string& display);
    ~XDesk();
    XDesk(const XDesk&) = delete;
    XDesk& operator=(const XDesk&) = delete;

    // On the root window. Colours are 0xRRGGBB.
    void fill(const Rect& area, std::uint32_t colour);
    // All fills in one request.
    void fill(const std::vector<Rect>& areas, std::uint32_t colour);
    // Rows of area.width colours.
    void put(const Rect& area, const std::vector<std::uint32_t>& colours);
    // Moves what is there, as when text scrolls.
    void copy(const Rect& from, int toX, int toY);

    // A window without a frame, above the others, of one colour; until closed.
    std::uint32_t openWindow(const Rect& area, std::uint32_t colour);
    void closeWindow(std::uint32_t window);

    // As a mouse does.
    void movePointer(int x, int y);
    void click(int x, int y);
    // As a program does that puts it somewhere: no device moved.
    void warpPointer(int x, int y);
    // The pointer over the root window: a rectangle of one colour, alpha first and multiplied into
    // the others: 0x80800000 is half red. The hot spot is its top left.
    void shapePointer(int width, int height, std::uint32_t argb);

    // Divides the screen: a new monitor of that name shows `area`. The first call replaces the
    // monitor that is there by nature.
    void setMonitor(const std::string& name, const Rect& area, bool isPrimary = false);
    void removeMonitor(const std::string& name);
    // Another mode, not larger than at the server's start; the root window takes its size.
    void resize(int width, int height);
    // Switches the server's own output off; resize() switches it on.
    void switchOff();

private:
    void sync();
    void setPen(std::uint32_t colour);
    void configureOutput(std::uint32_t mode, int width, int height);

    const std::unique_ptr<X11Connection> x11;
    std::uint32_t pen = 0;
    bool hasOwnMonitors = false;
    int modesMade = 0;
};

}  // namespace orvel
