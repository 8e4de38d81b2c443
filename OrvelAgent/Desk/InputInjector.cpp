#include "OrvelAgent/Desk/InputInjector.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "OrvelKit/Base/Unicode.h"
#include "OrvelKit/Wire/KeyCode.h"

namespace orvel {

namespace {

// After so long a pause somebody else may have moved the pointer.
constexpr std::chrono::milliseconds resynchroniseAfter{500};
constexpr std::uint16_t returnKey = 36;
constexpr std::size_t textChunk = 16;  // UTF-16 units that one event carries

// nullopt: `value` is no number, or none that Integer holds.
template <class Integer>
std::optional<Integer> whole(double value) {
    // The lowest value is a power of two, hence exact as a double; the highest is not.
    constexpr double lowest = static_cast<double>(std::numeric_limits<Integer>::min());
    if (!(value >= lowest && value < -lowest)) return std::nullopt;
    return static_cast<Integer>(value);
}

std::uint32_t flagsOf(std::uint16_t code, Modifiers modifiers) {
    std::uint32_t flags = 0;
    if (modifiers.contains(Modifiers::shift)) flags |= EventPoster::shiftFlag;
    if (modifiers.contains(Modifiers::control)) flags |= EventPoster::controlFlag;
    if (modifiers.contains(Modifiers::option)) flags |= EventPoster::alternateFlag;
    if (modifiers.contains(Modifiers::command)) flags |= EventPoster::commandFlag;
    if (modifiers.contains(Modifiers::function)) flags |= EventPoster::secondaryFunctionFlag;
    switch (code) {
        case 115:  // Home
        case 116:  // Page Up
        case 117:  // Forward Delete
        case 119:  // End
        case 121:  // Page Down
            return flags | EventPoster::secondaryFunctionFlag;
        case 123:  // Left
        case 124:  // Right
        case 125:  // Down
        case 126:  // Up
            return flags | EventPoster::secondaryFunctionFlag | EventPoster::numericPadFlag;
    }
    const auto& functionKeys = KeyCode::functionKeys;
    if (std::find(functionKeys.begin(), functionKeys.end(), code) != functionKeys.end()) {
        flags |= EventPoster::secondaryFunctionFlag;
    }
    return flags;
}

}  // namespace

InputInjector::InputInjector(SerialQueue& agentQueue, EventPoster& eventPoster)
    : queue(agentQueue), poster(eventPoster) {}

InputInjector::Outcome InputInjector::handle(const Control& control) {
    queue.assertCurrent();
    if (const auto* relative = control.as<Control::Move>()) return move(*relative);
    if (const auto* absolute = control.as<Control::MoveTo>()) return moveTo(*absolute);
    if (const auto* press = control.as<Control::Button>()) {
        button(press->button, press->down, press->clicks);
    } else if (const auto* wheel = control.as<Control::Scroll>()) {
        return scroll(*wheel);
    } else if (const auto* stroke = control.as<Control::Key>()) {
        key(*stroke);
    } else if (const auto* typed = control.as<Control::Text>()) {
        text(typed->text);
    }
    return Outcome::done;
}

void InputInjector::setDisplay(std::optional<std::uint32_t> display) {
    queue.assertCurrent();
    displayID = display;
}

void InputInjector::releaseButtons() {
    queue.assertCurrent();
    releaseHeldButtons();
}

void InputInjector::releaseAll() {
    queue.assertCurrent();
    releaseHeldButtons();
    poster.releaseAll();
}

void InputInjector::releaseHeldButtons() {
    if (leftDown) button(MouseButton::left, false, 1);
    if (rightDown) button(MouseButton::right, false, 1);
}

void InputInjector::resynchronise() {
    if (lastMove && queue.now() - *lastMove <= resynchroniseAfter) return;
    if (const auto real = poster.pointerLocation()) position = *real;
}

InputInjector::Outcome InputInjector::move(const Control::Move& move) {
    resynchronise();
    return postMove({position.x + move.dx, position.y + move.dy}, move.dx, move.dy);
}

InputInjector::Outcome InputInjector::moveTo(const Control::MoveTo& move) {
    // On a display that is gone nothing moves, but the numbers are judged all the same.
    const auto bounds = poster.displayBounds(displayID).value_or(EventPoster::Area{{}, 1, 1});
    const Point target{bounds.origin.x + bounds.width * move.x,
                       bounds.origin.y + bounds.height * move.y};
    return postMove(target, target.x - position.x, target.y - position.y);
}

InputInjector::Outcome InputInjector::postMove(Point target, double deltaX, double deltaY) {
    const auto wholeX = whole<std::int64_t>(std::round(deltaX));
    const auto wholeY = whole<std::int64_t>(std::round(deltaY));
    if (!wholeX || !wholeY) return Outcome::refused;
    const auto bounds = poster.displayBounds(displayID);
    if (!bounds) return Outcome::done;
    const auto [origin, width, height] = *bounds;
    position.x = std::min(origin.x + width - 1, std::max(origin.x, target.x));
    position.y = std::min(origin.y + height - 1, std::max(origin.y, target.y));
    lastMove = queue.now();
    const auto motion = leftDown    ? EventPoster::Motion::leftDragged
                        : rightDown ? EventPoster::Motion::rightDragged
                                    : EventPoster::Motion::moved;
    poster.postMotion(motion, position, *wholeX, *wholeY);
    return Outcome::done;
}

void InputInjector::button(MouseButton button, bool down, std::int64_t clicks) {
    resynchronise();
    (button == MouseButton::left ? leftDown : rightDown) = down;
    poster.postButton(button, down, position, std::max<std::int64_t>(clicks, 1));
}

InputInjector::Outcome InputInjector::scroll(const Control::Scroll& scroll) {
    const Point carry{scrollCarry.x + scroll.dx, scrollCarry.y + scroll.dy};
    const auto wholeX = whole<std::int32_t>(std::trunc(carry.x));
    const auto wholeY = whole<std::int32_t>(std::trunc(carry.y));
    if (!wholeX || !wholeY) return Outcome::refused;
    scrollCarry = {carry.x - *wholeX, carry.y - *wholeY};
    // Posted even when nothing is whole yet: the phase counts.
    poster.postScroll(*wholeX, *wholeY, scroll.phase);
    return Outcome::done;
}

void InputInjector::key(const Control::Key& key) {
    poster.postKey(key.code, key.down, flagsOf(key.code, key.modifiers));
}

void InputInjector::text(std::string_view text) {
    for (;;) {
        const std::size_t lineEnd = std::min(text.find('\n'), text.size());
        const std::u16string units = utf16From(text.substr(0, lineEnd));
        // Cut where the chunk is full, even inside a surrogate pair: the poster knows.
        for (std::size_t i = 0; i < units.size(); i += textChunk)
            poster.postText(std::u16string_view(units).substr(i, textChunk));
        if (lineEnd == text.size()) return;
        poster.postKey(returnKey, true, std::nullopt);
        poster.postKey(returnKey, false, std::nullopt);
        text.remove_prefix(lineEnd + 1);
    }
}

}  // namespace orvel
