#include "OrvelAgent/Update/VersionOrder.h"

#include <algorithm>

namespace orvel {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int sign(int comparison) {
    return comparison < 0 ? -1 : comparison > 0 ? 1 : 0;
}

// What `text` begins with as far as `belongs`; it is taken away.
std::string_view take(std::string_view& text, bool (*belongs)(char)) {
    const auto end = std::find_if_not(text.begin(), text.end(), belongs);
    const auto taken = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(taken.size());
    return taken;
}

// The end of a word is before letters, and these before all else; only a tilde is before the end.
int rank(std::string_view word, std::size_t index) {
    if (index >= word.size()) return 0;
    const char c = word[index];
    if (c == '~') return -1;
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return static_cast<unsigned char>(c) + (letter ? 0 : 256);
}

int compareWords(std::string_view a, std::string_view b) {
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        if (const int order = rank(a, i) - rank(b, i)) return sign(order);
    }
    return 0;
}

int compareNumbers(std::string_view a, std::string_view b) {
    for (auto* number : {&a, &b})
        number->remove_prefix(std::min(number->find_first_not_of('0'), number->size()));
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    return sign(a.compare(b));
}

// Words and numbers in turn.
int compareParts(std::string_view a, std::string_view b) {
    const auto isNoDigit = [](char c) { return !isDigit(c); };
    while (!a.empty() || !b.empty()) {
        const auto wordA = take(a, isNoDigit), wordB = take(b, isNoDigit);
        if (const int order = compareWords(wordA, wordB)) return order;
        const auto numberA = take(a, isDigit), numberB = take(b, isDigit);
        if (const int order = compareNumbers(numberA, numberB)) return order;
    }
    return 0;
}

struct Version {
    std::string_view epoch, upstream, revision;

    explicit Version(std::string_view text) : upstream(text) {
        if (const auto colon = upstream.find(':'); colon != std::string_view::npos) {
            epoch = upstream.substr(0, colon);
            upstream.remove_prefix(colon + 1);
        }
        if (const auto hyphen = upstream.rfind('-'); hyphen != std::string_view::npos) {
            revision = upstream.substr(hyphen + 1);
            upstream = upstream.substr(0, hyphen);
        }
    }
};

}  // namespace

int compareVersions(std::string_view a, std::string_view b) {
    const Version left(a), right(b);
    if (const int order = compareParts(left.epoch, right.epoch)) return order;
    if (const int order = compareParts(left.upstream, right.upstream)) return order;
    return compareParts(left.revision, right.revision);
}

}  // namespace orvel
