#include "Phone/KeyStroke.h"

#include <algorithm>
#include <charconv>

#include "OrvelKit/Wire/KeyCode.h"

namespace orvel::phone {

namespace {

struct Named {
    const char* name;
    std::uint16_t value;
};

constexpr Named modifierNames[] = {
    {"shift", Modifiers::shift}, {"ctrl", Modifiers::control},      {"control", Modifiers::control},
    {"alt", Modifiers::option},  {"opt", Modifiers::option},        {"option", Modifiers::option},
    {"cmd", Modifiers::command}, {"super", Modifiers::command},     {"command", Modifiers::command},
    {"fn", Modifiers::function}, {"function", Modifiers::function},
};

// The first spelling of a code is the one that is shown.
constexpr Named keyNames[] = {
    {"return", 36},    {"enter", 36},   {"esc", 53},      {"escape", 53},
    {"backspace", 51}, {"del", 117},    {"delete", 117},  {"forwarddelete", 117},
    {"tab", 48},       {"space", 49},   {"capslock", 57}, {"home", 115},
    {"end", 119},      {"pageup", 116}, {"pgup", 116},    {"pagedown", 121},
    {"pgdn", 121},     {"left", 123},   {"right", 124},   {"down", 125},
    {"up", 126},       {"iso", 10},     {"plus", 24},
};

template <std::size_t size>
std::optional<std::uint16_t> find(const Named (&table)[size], std::string_view name) {
    const auto* match = std::find_if(std::begin(table), std::end(table),
                                     [&](const Named& entry) { return entry.name == name; });
    if (match == std::end(table)) return std::nullopt;
    return match->value;
}

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

template <class Number>
std::optional<Number> numberIn(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<std::uint16_t> functionKey(std::string_view name) {
    if (name.size() < 2 || name.front() != 'f') return std::nullopt;
    const auto number = numberIn<unsigned>(name.substr(1));
    if (!number || *number < 1 || *number > KeyCode::functionKeys.size()) return std::nullopt;
    return KeyCode::functionKeys[*number - 1];
}

}  // namespace

std::optional<KeyStroke> KeyStroke::parse(std::string_view text) {
    KeyStroke stroke;
    // What follows a plus, or stands alone, may be a plus itself.
    for (std::size_t plus; (plus = text.find('+')) != std::string_view::npos && plus > 0;) {
        const auto modifier = find(modifierNames, lowered(text.substr(0, plus)));
        if (!modifier) return std::nullopt;
        stroke.modifiers.rawValue |= static_cast<std::uint8_t>(*modifier);
        text.remove_prefix(plus + 1);
    }
    const std::string name = lowered(text);
    if (name == "plus" || name == "+") stroke.modifiers.rawValue |= Modifiers::shift;
    if (name.size() == 1 && name != text) stroke.modifiers.rawValue |= Modifiers::shift;
    std::optional<std::uint16_t> code;
    if (const auto character = KeyCode::characters().find(name == "+" ? "=" : name);
        character != KeyCode::characters().end()) {
        code = character->second;
    } else if (name.starts_with("code:")) {
        code = numberIn<std::uint16_t>(std::string_view(name).substr(5));
    } else if (!(code = functionKey(name))) {
        code = find(keyNames, name);
    }
    if (!code) return std::nullopt;
    stroke.code = *code;
    return stroke;
}

std::vector<std::string> KeyStroke::names() {
    std::vector<std::string> names;
    std::vector<std::uint16_t> seen;
    for (const Named& key : keyNames) {
        if (std::find(seen.begin(), seen.end(), key.value) != seen.end()) continue;
        seen.push_back(key.value);
        names.emplace_back(key.name);
    }
    names.emplace_back("f1 to f12");
    return names;
}

}  // namespace orvel::phone
