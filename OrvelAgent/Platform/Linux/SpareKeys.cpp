#include "OrvelAgent/Platform/Linux/SpareKeys.h"

#include <algorithm>

namespace orvel {

void SpareKeys::setCodes(const std::vector<KeyCodeX>& codes) {
    std::vector<Key> next;
    for (const KeyCodeX code : codes) {
        const auto known = std::find_if(keys.begin(), keys.end(),
                                        [&](const Key& key) { return key.code == code; });
        next.push_back(known == keys.end() ? Key{code} : *known);
    }
    keys = std::move(next);
}

const SpareKeys::Key* SpareKeys::find(char32_t character) const {
    const auto found = std::find_if(keys.begin(), keys.end(), [&](const Key& key) {
        return key.character == character && character != 0;
    });
    return found == keys.end() ? nullptr : &*found;
}

void SpareKeys::markUsed(char32_t character, MonotonicTime now) {
    for (auto& key : keys) {
        if (key.character == character) key.usedAt = now;
    }
}

SpareKeys::Plan SpareKeys::lend(const std::vector<char32_t>& wanted, MonotonicTime now) {
    const auto first = wanted.begin();
    const auto last = first + static_cast<std::ptrdiff_t>(std::min(wanted.size(), keys.size()));
    // Who may give way, the longest unused first; a key that is not lent has never been used.
    std::vector<Key*> free;
    for (auto& key : keys) {
        if (key.character == 0 || std::find(first, last, key.character) == last)
            free.push_back(&key);
    }
    std::stable_sort(free.begin(), free.end(), [](const Key* a, const Key* b) {
        return std::pair(a->character != 0, a->usedAt) < std::pair(b->character != 0, b->usedAt);
    });
    Plan plan;
    auto next = free.begin();
    for (auto character = first; character != last; ++character) {
        if (find(*character)) continue;
        Key& key = **next++;
        const bool isResting = key.character != 0 && now < key.usedAt + rest;
        if (isResting) {
            // The ones found so far are enough for now.
            if (plan.changed.empty()) plan.waitUntil = key.usedAt + rest;
            break;
        }
        key = {key.code, *character, now + grace, now};
        plan.changed.push_back(key);
    }
    return plan;
}

std::vector<SpareKeys::Key> SpareKeys::lent() const {
    std::vector<Key> found;
    std::copy_if(keys.begin(), keys.end(), std::back_inserter(found),
                 [](const Key& key) { return key.character != 0; });
    return found;
}

std::optional<MonotonicTime> SpareKeys::lastUse() const {
    std::optional<MonotonicTime> last;
    for (const auto& key : lent())
        last = std::max(last.value_or(key.usedAt), key.usedAt);
    return last;
}

void SpareKeys::forget(KeyCodeX code) {
    for (auto& key : keys) {
        if (key.code == code) key = {code};
    }
}

void SpareKeys::forgetAll() {
    for (auto& key : keys)
        key = {key.code};
}

}  // namespace orvel
