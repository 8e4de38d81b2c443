#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "OrvelAgent/Platform/EventPoster.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

// Turns the phone's pointer, scroll, key and text controls into events of the desktop. It keeps its
// own idea of where the pointer is, remembers the buttons that it holds, so that moves become
// drags, and carries what is left of scrolls to the next one. Belongs to the queue given to it.
class InputInjector {
public:
    enum class Outcome {
        done,    // or no control for the injector: those are ignored
        refused  // it has a number that no event can carry; nothing was posted: end that link
    };

    InputInjector(SerialQueue& queue, EventPoster& poster);

    [[nodiscard]] Outcome handle(const Control& control);

    // The display that absolute positions refer to and that keeps the pointer; absent, as at first:
    // the main display. Moves on a display that is gone are skipped.
    void setDisplay(std::optional<std::uint32_t> displayID);

    // Lets go of the mouse buttons held: before another display is chosen.
    void releaseButtons();
    // Lets go of buttons and keys: when the phone is gone.
    void releaseAll();

private:
    using Point = EventPoster::Point;

    Outcome move(const Control::Move& move) RUNS_ON(queue);
    Outcome moveTo(const Control::MoveTo& move) RUNS_ON(queue);
    Outcome postMove(Point target, double deltaX, double deltaY) RUNS_ON(queue);
    void button(MouseButton button, bool down, std::int64_t clicks) RUNS_ON(queue);
    Outcome scroll(const Control::Scroll& scroll) RUNS_ON(queue);
    void key(const Control::Key& key) RUNS_ON(queue);
    void text(std::string_view text) RUNS_ON(queue);
    void resynchronise() RUNS_ON(queue);
    void releaseHeldButtons() RUNS_ON(queue);

    SerialQueue& queue;
    EventPoster& poster OWNED_BY(queue);
    std::optional<std::uint32_t> displayID OWNED_BY(queue);
    Point position OWNED_BY(queue);
    std::optional<MonotonicTime> lastMove OWNED_BY(queue);  // nullopt: long ago
    bool leftDown OWNED_BY(queue) = false;
    bool rightDown OWNED_BY(queue) = false;
    Point scrollCarry OWNED_BY(queue);
};

}  // namespace orvel
