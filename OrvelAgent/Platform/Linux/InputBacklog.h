#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "OrvelAgent/Platform/EventPoster.h"

namespace orvel {

// One call of EventPoster, to be carried out later.
struct InputEvent {
    struct Motion {
        EventPoster::Point to;
        bool operator==(const Motion&) const = default;
    };
    struct Button {
        MouseButton button{};
        bool down = false;
        EventPoster::Point at;
        bool operator==(const Button&) const = default;
    };
    struct Scroll {
        std::int32_t dx = 0, dy = 0;
        ScrollPhase phase{};
        bool operator==(const Scroll&) const = default;
    };
    struct Key {
        std::uint16_t code = 0;
        bool down = false;
        std::optional<std::uint32_t> flags;
        bool commandIsSuper = false;
        bool operator==(const Key&) const = default;
    };
    struct Text {
        std::u16string units;
        bool operator==(const Text&) const = default;
    };
    struct ReleaseAll {
        bool operator==(const ReleaseAll&) const = default;
    };
    std::variant<Motion, Button, Scroll, Key, Text, ReleaseAll> what;
    bool operator==(const InputEvent&) const = default;
};

// The events that wait for the X server, in order; bounded, whatever comes while it does not
// answer. Thread-safe.
//
// Neighbouring pieces of text become one. When many events wait, a motion replaces the one just
// before it and scrolls add up. Beyond the limits nothing more is taken until take() has fetched
// what waits; as releases may be among what was dropped, everything is let go of after that.
class InputBacklog {
public:
    static constexpr std::size_t eventLimit = 4'096, textLimit = 256 * 1'024;  // units of UTF-16
    static constexpr std::size_t mergeFrom = 64;                               // events

    // True: nothing waited before, so that somebody has to be woken.
    bool add(InputEvent event);
    // Everything that waits.
    std::deque<InputEvent> take();

private:
    bool merge(const InputEvent& event);

    std::mutex mutex;  // guards the following
    std::deque<InputEvent> events;
    std::size_t textUnits = 0;
    bool hasDropped = false;
};

}  // namespace orvel
