#include "OrvelAgent/Platform/Linux/InputRecord.h"

#include <cstring>
#include <optional>
#include <string_view>

namespace orvel {

namespace {

// On the root window: the number of that window; on that window: the content.
constexpr std::string_view propertyName = "_ORVEL_INPUT";
constexpr std::uint32_t formatNumber = 1;
constexpr std::uint32_t longestContent = 1'024;  // words

using Words = std::vector<std::uint32_t>;

// nullopt: there is none, or it is no list of words.
std::optional<Words> readWords(const X11Connection& x11, xcb_window_t window, xcb_atom_t name) {
    try {
        const auto answer = x11.reply<xcb_get_property_reply>(
            xcb_get_property(x11.get(), false, window, name, XCB_ATOM_CARDINAL, 0, longestContent),
            "GetProperty");
        if (answer->format != 32) return std::nullopt;
        const auto count = static_cast<std::size_t>(xcb_get_property_value_length(answer.get())) /
                           sizeof(std::uint32_t);
        Words words(count);
        std::memcpy(words.data(), xcb_get_property_value(answer.get()),
                    count * sizeof(std::uint32_t));
        return words;
    } catch (const X11Refusal&) {
        return std::nullopt;  // there is no such window
    }
}

void writeWords(const X11Connection& x11, xcb_window_t window, xcb_atom_t name,
                const Words& words) {
    xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, window, name, XCB_ATOM_CARDINAL, 32,
                        static_cast<std::uint32_t>(words.size()), words.data());
}

Words encoded(const InputRecord::Content& content) {
    Words words{formatNumber, content.hasSuspendedRepeat};
    words.push_back(static_cast<std::uint32_t>(content.keys.size()));
    words.insert(words.end(), content.keys.begin(), content.keys.end());
    words.push_back(static_cast<std::uint32_t>(content.buttons.size()));
    words.insert(words.end(), content.buttons.begin(), content.buttons.end());
    for (const auto& [code, symbol, shifted] : content.assigned)
        words.insert(words.end(), {code, symbol, shifted});
    return words;
}

// Whoever may write to the server may have written anything; what makes no sense counts as empty.
InputRecord::Content decoded(const Words& words) {
    InputRecord::Content content;
    std::size_t at = 0;
    const auto next = [&]() -> std::uint32_t { return at < words.size() ? words[at++] : 0; };
    if (next() != formatNumber) return {};
    content.hasSuspendedRepeat = next() != 0;
    for (auto* list : {&content.keys, &content.buttons}) {
        for (auto count = next(); count > 0 && at < words.size(); --count)
            list->push_back(static_cast<std::uint8_t>(next()));
    }
    while (words.size() - at >= 3) {
        KeyAssignment assignment;
        assignment.code = static_cast<KeyCodeX>(next());
        assignment.symbol = next();
        assignment.shifted = next();
        content.assigned.push_back(assignment);
    }
    return content;
}

}  // namespace

InputRecord::InputRecord(const X11Connection& connection, const std::string& display)
    : x11(connection) {
    const auto atom = x11.reply<xcb_intern_atom_reply>(
        xcb_intern_atom(x11.get(), false, propertyName.size(), propertyName.data()), "InternAtom");
    name = atom->atom;
    if (findWindow()) return;
    makeWindow(display);
    findWindow();
}

bool InputRecord::findWindow() {
    const auto number = readWords(x11, x11.root(), name);
    if (!number || number->size() != 1) return false;
    const auto content = readWords(x11, number->front(), name);
    if (!content) return false;
    window = number->front();
    last = decoded(*content);
    return true;
}

// By a connection of its own, so that nothing but the window outlives us.
void InputRecord::makeWindow(const std::string& display) const {
    const X11Connection maker(display);
    const auto made = xcb_generate_id(maker.get());
    constexpr std::uint32_t isOverridden = 1;
    xcb_create_window(maker.get(), 0, made, maker.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &isOverridden);
    writeWords(maker, made, name, encoded({}));
    writeWords(maker, maker.root(), name, {made});
    xcb_set_close_down_mode(maker.get(), XCB_CLOSE_DOWN_RETAIN_PERMANENT);
    maker.reply<xcb_get_input_focus_reply>(xcb_get_input_focus(maker.get()), "GetInputFocus");
}

void InputRecord::write(const Content& content) {
    if (window == XCB_NONE || content == last) return;
    last = content;
    writeWords(x11, window, name, encoded(content));
}

}  // namespace orvel
