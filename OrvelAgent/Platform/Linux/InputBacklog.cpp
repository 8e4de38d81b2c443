#include "OrvelAgent/Platform/Linux/InputBacklog.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace orvel {

namespace {

std::int32_t saturatingSum(std::int32_t a, std::int32_t b) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(std::int64_t{a} + b, Limits::min(), Limits::max()));
}

}  // namespace

bool InputBacklog::add(InputEvent event) {
    const std::lock_guard hold(mutex);
    if (hasDropped) return false;
    if (merge(event)) return false;
    const auto* text = std::get_if<InputEvent::Text>(&event.what);
    const std::size_t units = text ? text->units.size() : 0;
    if (events.size() >= eventLimit || textUnits + units > textLimit) {
        hasDropped = true;
        return false;
    }
    textUnits += units;
    events.push_back(std::move(event));
    return events.size() == 1;
}

// True: the event has become part of the last one.
bool InputBacklog::merge(const InputEvent& event) {
    if (events.empty()) return false;
    auto& last = events.back().what;
    if (last.index() != event.what.index()) return false;
    if (const auto* text = std::get_if<InputEvent::Text>(&event.what)) {
        if (textUnits + text->units.size() > textLimit) return false;
        textUnits += text->units.size();
        std::get<InputEvent::Text>(last).units += text->units;
        return true;
    }
    if (events.size() < mergeFrom) return false;
    if (const auto* motion = std::get_if<InputEvent::Motion>(&event.what)) {
        last = *motion;
        return true;
    }
    if (const auto* scroll = std::get_if<InputEvent::Scroll>(&event.what)) {
        auto& sum = std::get<InputEvent::Scroll>(last);
        if (sum.phase != scroll->phase) return false;
        sum.dx = saturatingSum(sum.dx, scroll->dx);
        sum.dy = saturatingSum(sum.dy, scroll->dy);
        return true;
    }
    return std::holds_alternative<InputEvent::ReleaseAll>(event.what);
}

std::deque<InputEvent> InputBacklog::take() {
    const std::lock_guard hold(mutex);
    if (std::exchange(hasDropped, false)) events.push_back({InputEvent::ReleaseAll{}});
    textUnits = 0;
    return std::exchange(events, {});
}

}  // namespace orvel
