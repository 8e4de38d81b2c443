// Core Graphics' contract: an event made from a source in the HID system's state carries what the
// hardware would; posted at the HID tap it goes the way of the hardware's own. Without the
// accessibility permission the system drops it without a word. Making and posting are safe on any
// thread and do not wait. An event made from nothing tells where the pointer is. Key events whose
// flags are set carry exactly those.
#include <ApplicationServices/ApplicationServices.h>

#include <set>

#include "OrvelAgent/Platform/EventPoster.h"
#include "OrvelAgent/Platform/MacOS/CFOwner.h"

namespace orvel {

namespace {

// The numbers that the wire and the portable side rely on are the headers' own.
static_assert(kCGEventSourceStateHIDSystemState == 1);
static_assert(kCGEventLeftMouseDown == 1 && kCGEventLeftMouseUp == 2);
static_assert(kCGEventRightMouseDown == 3 && kCGEventRightMouseUp == 4);
static_assert(kCGEventMouseMoved == 5);
static_assert(kCGEventLeftMouseDragged == 6 && kCGEventRightMouseDragged == 7);
static_assert(kCGMouseButtonLeft == 0 && kCGMouseButtonRight == 1);
static_assert(kCGMouseEventClickState == 1);
static_assert(kCGMouseEventDeltaX == 4 && kCGMouseEventDeltaY == 5);
static_assert(kCGScrollEventUnitPixel == 0);
static_assert(kCGScrollWheelEventIsContinuous == 88);
static_assert(kCGScrollWheelEventScrollPhase == 99);
static_assert(kCGScrollWheelEventMomentumPhase == 123);
static_assert(kCGScrollPhaseBegan == 1 && kCGScrollPhaseChanged == 2 && kCGScrollPhaseEnded == 4);
static_assert(kCGMomentumScrollPhaseContinue == 2 && kCGMomentumScrollPhaseEnd == 3);
static_assert(EventPoster::shiftFlag == kCGEventFlagMaskShift);
static_assert(EventPoster::controlFlag == kCGEventFlagMaskControl);
static_assert(EventPoster::alternateFlag == kCGEventFlagMaskAlternate);
static_assert(EventPoster::commandFlag == kCGEventFlagMaskCommand);
static_assert(EventPoster::numericPadFlag == kCGEventFlagMaskNumericPad);
static_assert(EventPoster::secondaryFunctionFlag == kCGEventFlagMaskSecondaryFn);

using Event = CFOwner<CGEventRef>;

CGPoint cgPoint(EventPoster::Point point) {
    return CGPointMake(point.x, point.y);
}

// What could not be made is skipped.
void post(const Event& event) {
    if (event) CGEventPost(kCGHIDEventTap, event.get());
}

struct PhaseField {
    CGEventField field;
    std::int64_t value;
};

// Momentum has no beginning of its own.
PhaseField phaseField(ScrollPhase phase) {
    switch (phase) {
        case ScrollPhase::began:
            return {kCGScrollWheelEventScrollPhase, kCGScrollPhaseBegan};
        case ScrollPhase::changed:
            return {kCGScrollWheelEventScrollPhase, kCGScrollPhaseChanged};
        case ScrollPhase::ended:
            return {kCGScrollWheelEventScrollPhase, kCGScrollPhaseEnded};
        case ScrollPhase::momentum:
            return {kCGScrollWheelEventMomentumPhase, kCGMomentumScrollPhaseContinue};
        case ScrollPhase::momentumEnded:
            return {kCGScrollWheelEventMomentumPhase, kCGMomentumScrollPhaseEnd};
    }
    return {kCGScrollWheelEventScrollPhase, kCGScrollPhaseChanged};
}

class CGEventPoster final : public EventPoster {
public:
    ~CGEventPoster() override { releaseAll(); }

    void postMotion(Motion motion, Point to, std::int64_t deltaX, std::int64_t deltaY) override {
        const CGEventType type = motion == Motion::leftDragged    ? kCGEventLeftMouseDragged
                                 : motion == Motion::rightDragged ? kCGEventRightMouseDragged
                                                                  : kCGEventMouseMoved;
        const CGMouseButton button =
            motion == Motion::leftDragged ? kCGMouseButtonLeft : kCGMouseButtonRight;
        const Event event(CGEventCreateMouseEvent(source.get(), type, cgPoint(to), button));
        if (!event) return;
        CGEventSetIntegerValueField(event.get(), kCGMouseEventDeltaX, deltaX);
        CGEventSetIntegerValueField(event.get(), kCGMouseEventDeltaY, deltaY);
        post(event);
    }

    void postButton(MouseButton button, bool down, Point at, std::int64_t clicks) override {
        const bool isLeft = button == MouseButton::left;
        const CGEventType type = isLeft ? (down ? kCGEventLeftMouseDown : kCGEventLeftMouseUp)
                                        : (down ? kCGEventRightMouseDown : kCGEventRightMouseUp);
        const Event event(CGEventCreateMouseEvent(
            source.get(), type, cgPoint(at), isLeft ? kCGMouseButtonLeft : kCGMouseButtonRight));
        if (!event) return;
        CGEventSetIntegerValueField(event.get(), kCGMouseEventClickState, clicks);
        post(event);
        if (down) {
            heldButtons.insert(button);
        } else {
            heldButtons.erase(button);
        }
    }

    void postScroll(std::int32_t dx, std::int32_t dy, ScrollPhase phase) override {
        const Event event(CGEventCreateScrollWheelEvent2(source.get(), kCGScrollEventUnitPixel,
                                                         /*wheelCount=*/2, dy, dx, 0));
        if (!event) return;
        const auto [field, value] = phaseField(phase);
        CGEventSetIntegerValueField(event.get(), kCGScrollWheelEventIsContinuous, 1);
        CGEventSetIntegerValueField(event.get(), field, value);
        post(event);
    }

    void postKey(std::uint16_t code, bool down, std::optional<std::uint32_t> flags) override {
        const Event event(CGEventCreateKeyboardEvent(source.get(), code, down));
        if (!event) return;
        if (flags) CGEventSetFlags(event.get(), *flags);
        post(event);
        if (down) {
            heldKeys.insert(code);
        } else {
            heldKeys.erase(code);
        }
    }

    void postText(std::u16string_view units) override {
        for (const bool down : {true, false}) {
            const Event event(CGEventCreateKeyboardEvent(source.get(), /*virtualKey=*/0, down));
            if (!event) continue;
            static_assert(sizeof(UniChar) == sizeof(char16_t));
            CGEventKeyboardSetUnicodeString(event.get(), units.size(),
                                            reinterpret_cast<const UniChar*>(units.data()));
            post(event);
        }
    }

    void releaseAll() override {
        for (const std::uint16_t code : std::set(heldKeys))
            postKey(code, false, 0);
        const Point here = pointerLocation().value_or(Point{});
        for (const MouseButton button : std::set(heldButtons))
            postButton(button, false, here, 1);
    }

    std::optional<Point> pointerLocation() override {
        const Event event(CGEventCreate(nullptr));
        if (!event) return std::nullopt;
        const CGPoint location = CGEventGetLocation(event.get());
        return Point{location.x, location.y};
    }

    std::optional<Area> displayBounds(std::optional<std::uint32_t> displayID) override {
        const CGRect bounds = CGDisplayBounds(displayID.value_or(CGMainDisplayID()));
        if (CGRectIsEmpty(bounds)) return std::nullopt;  // there is no such display
        return Area{{bounds.origin.x, bounds.origin.y}, bounds.size.width, bounds.size.height};
    }

private:
    const CFOwner<CGEventSourceRef> source{CGEventSourceCreate(kCGEventSourceStateHIDSystemState)};
    std::set<std::uint16_t> heldKeys;
    std::set<MouseButton> heldButtons;
};

}  // namespace

std::unique_ptr<EventPoster> EventPoster::create(Defaults&) {
    return std::make_unique<CGEventPoster>();
}

}  // namespace orvel
