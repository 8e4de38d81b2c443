#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "OrvelKit/Wire/Control.h"

namespace orvel {

class Defaults;

// Puts pointer and keyboard events into the desktop session, as if they came from hardware. It
// decides nothing: positions, clicks, drags, carries and flags come ready-made from InputInjector.
//
// Every call belongs to one queue, "orvel.agent", and returns at once: an implementation that has
// to wait for a display server does so on a queue of its own ("orvel.input"), where it posts the
// events in the order of the calls. For the same reason the two questions are answered from what
// is known: an implementation keeps that up to date and at most 0.1 s old.
//
// Nothing is reported: an event that the system does not take, for want of a permission or of a
// key, is skipped.
class EventPoster {
public:
    // Points of the desktop; y grows downwards. The origin is the system's: the main display's top
    // left corner on a Mac, the root window's on X11.
    struct Point {
        double x = 0, y = 0;
        bool operator==(const Point&) const = default;
    };
    struct Area {
        Point origin;
        double width = 0, height = 0;
        bool operator==(const Area&) const = default;
    };

    // A drag belongs to the button in its name; where a plain move names a button, it is the right.
    enum class Motion { moved, leftDragged, rightDragged };

    // Bits of the flags of a key event; no others are used.
    static constexpr std::uint32_t shiftFlag = 0x20000, controlFlag = 0x40000,
                                   alternateFlag = 0x80000, commandFlag = 0x100000,
                                   numericPadFlag = 0x200000, secondaryFunctionFlag = 0x800000;

    virtual ~EventPoster() = default;

    // `to` lies on a display. The deltas are points too: what the hand moved, which at the edge of
    // a display is more than what the pointer does.
    virtual void postMotion(Motion motion, Point to, std::int64_t deltaX, std::int64_t deltaY) = 0;
    // `clicks`, 1 or more: how often in a row this button has been pressed, this time included.
    virtual void postButton(MouseButton button, bool down, Point at, std::int64_t clicks) = 0;
    // Pixels, positive up and to the left. Both may be 0: then only the phase counts.
    virtual void postScroll(std::int32_t dx, std::int32_t dy, ScrollPhase phase) = 0;
    // A key of the Mac's keyboard by its virtual code (KeyCode.h), that is, by its place. The event
    // carries exactly `flags`; nullopt: those of the keyboard as it is.
    virtual void postKey(std::uint16_t code, bool down, std::optional<std::uint32_t> flags) = 0;
    // Key press and release that carry text, whatever the layout: at most 16 units of UTF-16. A
    // surrogate pair may be cut between one call and the next (see Utf16Joiner); control characters
    // other than line feeds may be in it.
    virtual void postText(std::u16string_view units) = 0;

    // Lets go of every key and button that this poster holds down. Its destructor does so too, and
    // waits for it.
    virtual void releaseAll() = 0;

    // Where the pointer really is, also when the user has moved it; nullopt: not known.
    virtual std::optional<Point> pointerLocation() = 0;
    // `displayID` as ScreenSource has it; absent: the main display. nullopt: there is none such.
    virtual std::optional<Area> displayBounds(std::optional<std::uint32_t> displayID) = 0;

    // `defaults` outlives the poster. On Linux, where no key is called Command, the user default
    // "commandKey" says what it acts as: "super", or else Control; read with each key.
    static std::unique_ptr<EventPoster> create(Defaults& defaults);
};

}  // namespace orvel
