#include "OrvelAgent/Platform/Linux/KeySymTable.h"

#include <algorithm>
#include <cstring>

namespace orvel {

namespace {

// XKB has the same four types at the start of each keyboard's list: this one chooses by Shift.
constexpr std::uint8_t twoLevels = 1;

std::uint8_t countOf(KeySymTable::Range range) {
    return static_cast<std::uint8_t>(range.last - range.first + 1);
}

template <class Value>
void append(std::vector<std::uint8_t>& bytes, const Value* values, std::size_t count) {
    const auto* begin = reinterpret_cast<const std::uint8_t*>(values);
    bytes.insert(bytes.end(), begin, begin + count * sizeof(Value));
}

}  // namespace

xcb_xkb_get_map_cookie_t KeySymTable::ask(const X11Connection& x11, std::uint16_t keyboard,
                                          Range range) {
    return xcb_xkb_get_map(x11.get(), keyboard, 0, XCB_XKB_MAP_PART_KEY_SYMS, 0, 0, range.first,
                           countOf(range), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}

KeySymTable::KeySymTable(const xcb_xkb_get_map_reply_t& answer)
    : first(answer.firstKeySym), lowest(answer.minKeyCode), highest(answer.maxKeyCode) {
    // Nothing but keysyms was asked for. libxcb has seen to it that all of `length` is there.
    const auto* at = static_cast<const std::uint8_t*>(xcb_xkb_get_map_map(&answer));
    const auto* end = reinterpret_cast<const std::uint8_t*>(&answer) + 32 + 4 * answer.length;
    for (int i = 0; i < answer.nKeySyms; ++i) {
        Row row;
        if (end - at < static_cast<std::ptrdiff_t>(sizeof row.head)) break;
        std::memcpy(&row.head, at, sizeof row.head);
        at += sizeof row.head;
        const std::size_t size = row.head.nSyms * sizeof(xcb_keysym_t);
        if (end - at < static_cast<std::ptrdiff_t>(size)) break;
        row.symbols.resize(row.head.nSyms);
        if (size > 0) std::memcpy(row.symbols.data(), at, size);
        at += size;
        rows.push_back(std::move(row));
    }
    if (rows.size() != answer.nKeySyms) throw X11Failure("XkbGetMap was answered with nonsense");
}

bool KeySymTable::has(const KeyAssignment& assignment) const {
    const auto& symbols = rows.at(assignment.code - first).symbols;
    if (assignment.symbol == 0) {
        return std::all_of(symbols.begin(), symbols.end(),
                           [](xcb_keysym_t symbol) { return symbol == 0; });
    }
    return symbols == std::vector<xcb_keysym_t>{assignment.symbol, assignment.shifted};
}

void KeySymTable::set(const KeyAssignment& assignment) {
    Row& row = rows.at(assignment.code - first);
    row = {};
    if (assignment.symbol == 0) return;
    // One group, which counts for all of them.
    row.head.kt_index[0] = twoLevels;
    row.head.groupInfo = 1;
    row.symbols = {assignment.symbol, assignment.shifted};
    row.head.nSyms = row.head.width = 2;
}

bool KeySymTable::operator==(const KeySymTable& other) const {
    return first == other.first && lowest == other.lowest && highest == other.highest &&
           std::equal(rows.begin(), rows.end(), other.rows.begin(), other.rows.end(),
                      [](const Row& a, const Row& b) {
                          return std::memcmp(&a.head, &b.head, sizeof a.head) == 0 &&
                                 a.symbols == b.symbols;
                      });
}

xcb_void_cookie_t KeySymTable::write(const X11Connection& x11, std::uint16_t keyboard,
                                     Range range) const {
    std::vector<std::uint8_t> values;
    std::uint16_t total = 0;
    for (std::size_t code = range.first; code <= range.last; ++code) {
        const Row& row = rows.at(code - first);
        append(values, &row.head, 1);
        append(values, row.symbols.data(), row.symbols.size());
        total = static_cast<std::uint16_t>(total + row.head.nSyms);
    }
    // Other bounds than the keyboard's would change those.
    return xcb_xkb_set_map_checked(x11.get(), keyboard, XCB_XKB_MAP_PART_KEY_SYMS, 0, lowest,
                                   highest, 0, 0, range.first, countOf(range), total, 0, 0, 0, 0, 0,
                                   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, values.data());
}

}  // namespace orvel
