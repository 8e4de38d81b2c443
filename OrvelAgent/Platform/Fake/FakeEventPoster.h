#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "OrvelAgent/Platform/EventPoster.h"

namespace orvel {

// Records each event as a line; the test sets where the pointer is. Posted motions move it.
//
//     moved 10,20 by 10,20    leftDragged ...    left down 10,20 x1    scroll 0,-3 changed
//     key 36 down             key 0 up 0x20000   text 4 0061 015f ...  release all
class FakeEventPoster : public EventPoster {
public:
    std::vector<std::string> events;
    std::optional<Point> pointer = Point{};
    std::map<std::uint32_t, Area> displays = {{1, {{0, 0}, 1280, 720}}};
    std::uint32_t mainDisplay = 1;

    std::vector<std::string> takeEvents() { return std::exchange(events, {}); }

    void postMotion(Motion motion, Point to, std::int64_t deltaX, std::int64_t deltaY) override {
        static constexpr const char* names[] = {"moved", "leftDragged", "rightDragged"};
        events.push_back(std::string(names[static_cast<int>(motion)]) + " " + text(to) + " by " +
                         std::to_string(deltaX) + "," + std::to_string(deltaY));
        pointer = to;
    }
    void postButton(MouseButton button, bool down, Point at, std::int64_t clicks) override {
        events.push_back(std::string(rawValue(button)) + (down ? " down " : " up ") + text(at) +
                         " x" + std::to_string(clicks));
    }
    void postScroll(std::int32_t dx, std::int32_t dy, ScrollPhase phase) override {
        events.push_back("scroll " + std::to_string(dx) + "," + std::to_string(dy) + " " +
                         rawValue(phase));
    }
    void postKey(std::uint16_t code, bool down, std::optional<std::uint32_t> flags) override {
        std::string event = "key " + std::to_string(code) + (down ? " down" : " up");
        if (flags) event += " 0x" + hex(*flags);
        events.push_back(event);
    }
    void postText(std::u16string_view units) override {
        std::string event = "text " + std::to_string(units.size());
        for (const char16_t unit : units)
            event += " " + hex(unit, 4);
        events.push_back(event);
    }
    void releaseAll() override { events.push_back("release all"); }

    std::optional<Point> pointerLocation() override { return pointer; }
    std::optional<Area> displayBounds(std::optional<std::uint32_t> displayID) override {
        const auto found = displays.find(displayID.value_or(mainDisplay));
        return found == displays.end() ? std::nullopt : std::optional(found->second);
    }

private:
    static std::string text(Point point) {
        char line[64];
        std::snprintf(line, sizeof line, "%g,%g", point.x, point.y);
        return line;
    }
    static std::string hex(std::uint32_t value, int digits = 1) {
        char line[16];
        std::snprintf(line, sizeof line, "%0*x", digits, value);
        return line;
    }
};

}  // namespace orvel
