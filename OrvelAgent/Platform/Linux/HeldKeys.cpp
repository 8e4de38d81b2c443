#include "OrvelAgent/Platform/Linux/HeldKeys.h"

#include <algorithm>

namespace orvel {

std::vector<KeyAction> HeldKeys::press(std::uint16_t key, KeyCodeX code,
                                       const std::optional<std::vector<ModifierKey>>& modifiers,
                                       ModifierMask down, ModifierMask own) {
    std::vector<KeyAction> actions;
    // A new press of the same key, perhaps with another meaning by now.
    const bool again = holders.contains(code) && holders[code].contains({key, false});
    letGo(
        [&](KeyCodeX held, const Holder& holder) {
            return holder.key == key && !holder.asModifier && (held != code || again);
        },
        actions);

    if (modifiers && own == 0) {
        const auto isWanted = [&](KeyCodeX held) {
            return std::any_of(modifiers->begin(), modifiers->end(),
                               [&](const ModifierKey& wanted) { return wanted.code == held; });
        };
        letGo(
            [&](KeyCodeX held, const Holder& holder) {
                return holder.asModifier && !isWanted(held) && !isHeldAsKey(held);
            },
            actions);
    }
    for (const auto& wanted : modifiers.value_or(std::vector<ModifierKey>{})) {
        const bool ours = holders.contains(wanted.code);
        if ((wanted.mask & own) || (ours && isHeldAsKey(wanted.code))) continue;
        if (!ours && (down & wanted.mask) == wanted.mask) continue;
        hold(wanted.code, {key, true}, actions);
    }
    hold(code, {key, false}, actions);
    return actions;
}

std::vector<KeyAction> HeldKeys::release(std::uint16_t key) {
    std::vector<KeyAction> actions;
    for (const bool asModifier : {false, true}) {
        letGo(
            [&](KeyCodeX, const Holder& holder) {
                return holder == Holder{key, asModifier};
            },
            actions);
    }
    return actions;
}

std::vector<KeyAction> HeldKeys::releaseAll() {
    std::vector<KeyAction> actions;
    for (const bool asModifier : {false, true}) {
        letGo([&](KeyCodeX, const Holder& holder) { return holder.asModifier == asModifier; },
              actions);
    }
    return actions;
}

std::vector<KeyCodeX> HeldKeys::codes() const {
    std::vector<KeyCodeX> all;
    for (const auto& [code, who] : holders)
        all.push_back(code);
    return all;
}

void HeldKeys::forget() {
    holders.clear();
}

void HeldKeys::hold(KeyCodeX code, Holder holder, std::vector<KeyAction>& actions) {
    auto& who = holders[code];
    if (who.empty()) actions.push_back({code, true});
    who.insert(holder);
}

void HeldKeys::letGo(const std::function<bool(KeyCodeX, const Holder&)>& which,
                     std::vector<KeyAction>& actions) {
    for (auto each = holders.begin(); each != holders.end();) {
        auto& [code, who] = *each;
        std::erase_if(who, [&, held = code](const Holder& holder) { return which(held, holder); });
        if (who.empty()) actions.push_back({code, false});
        each = who.empty() ? holders.erase(each) : std::next(each);
    }
}

bool HeldKeys::isHeldAsKey(KeyCodeX code) const {
    const auto found = holders.find(code);
    return found != holders.end() &&
           std::any_of(found->second.begin(), found->second.end(),
                       [](const Holder& holder) { return !holder.asModifier; });
}

}  // namespace orvel
