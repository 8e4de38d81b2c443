#include "OrvelAgent/Platform/Linux/SpareKeys.h"

#include <algorithm>
#include <set>
#include <utility>

namespace orvel {

void SpareKeys::setCodes(const std::vector<KeyCodeX>& codes) {
    std::vector<Place> next;
    for (const bool withShift : {false, true}) {
        for (const KeyCodeX code : codes) {
            const auto known = std::find_if(places.begin(), places.end(), [&](const Place& place) {
                return place.code == code && place.withShift == withShift;
            });
            next.push_back(known == places.end() ? Place{code, withShift} : *known);
        }
    }
    places = std::move(next);
}

const SpareKeys::Place* SpareKeys::find(char32_t character) const {
    const auto found = std::find_if(places.begin(), places.end(), [&](const Place& place) {
        return place.character == character && character != 0;
    });
    return found == places.end() ? nullptr : &*found;
}

void SpareKeys::markUsed(char32_t character, MonotonicTime now) {
    for (auto& place : places) {
        if (place.character == character) place.usedAt = now;
    }
}

SpareKeys::Plan SpareKeys::lend(const std::vector<char32_t>& wanted, MonotonicTime now,
                                Duration rest) {
    const auto first = wanted.begin();
    const auto last = first + static_cast<std::ptrdiff_t>(std::min(wanted.size(), places.size()));
    // Who may give way: free places first, then the longest unused.
    std::vector<Place*> available;
    for (auto& place : places) {
        if (place.character == 0 || std::find(first, last, place.character) == last)
            available.push_back(&place);
    }
    const auto age = [](const Place* place) {
        return std::pair(place->character != 0, place->usedAt);
    };
    std::stable_sort(available.begin(), available.end(),
                     [&](const Place* a, const Place* b) { return age(a) < age(b); });
    Plan plan;
    std::set<KeyCodeX> changed;
    auto next = available.begin();
    for (auto character = first; character != last; ++character) {
        if (find(*character)) continue;
        Place& place = **next++;
        if (place.character != 0 && place.usedAt > readUntil && now < place.usedAt + rest) {
            // The ones found so far are enough for now.
            if (changed.empty()) plan.waitUntil = place.usedAt + rest;
            break;
        }
        place = {place.code, place.withShift, *character, now + grace, now};
        changed.insert(place.code);
    }
    plan.changed.assign(changed.begin(), changed.end());
    return plan;
}

SpareKeys::Characters SpareKeys::charactersOf(KeyCodeX code) const {
    Characters found;
    for (const auto& place : places) {
        if (place.code == code) (place.withShift ? found.shifted : found.plain) = place.character;
    }
    if (found.plain == 0) found.plain = found.shifted;
    if (found.shifted == 0) found.shifted = found.plain;
    return found;
}

std::vector<KeyCodeX> SpareKeys::lent() const {
    std::set<KeyCodeX> codes;
    for (const auto& place : places) {
        if (place.character != 0) codes.insert(place.code);
    }
    return {codes.begin(), codes.end()};
}

std::optional<MonotonicTime> SpareKeys::lastUse() const {
    std::optional<MonotonicTime> last;
    for (const auto& place : places) {
        if (place.character != 0) last = std::max(last.value_or(place.usedAt), place.usedAt);
    }
    return last;
}

void SpareKeys::forget(KeyCodeX code) {
    for (auto& place : places) {
        if (place.code == code) place = {code, place.withShift};
    }
}

void SpareKeys::forgetAll() {
    for (auto& place : places)
        place = {place.code, place.withShift};
}

}  // namespace orvel
