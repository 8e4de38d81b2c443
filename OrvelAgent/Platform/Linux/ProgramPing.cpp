#include "OrvelAgent/Platform/Linux/ProgramPing.h"

#include <algorithm>
#include <string_view>

namespace orvel {

namespace {

xcb_atom_t atom(const X11Connection& x11, std::string_view name) {
    return x11
        .reply<xcb_intern_atom_reply>(
            xcb_intern_atom(x11.get(), false, static_cast<std::uint16_t>(name.size()), name.data()),
            "InternAtom")
        ->atom;
}

}  // namespace

ProgramPing::ProgramPing(const X11Connection& connection, std::uint32_t rootEvents)
    : x11(connection),
      otherEvents(rootEvents),
      protocols(atom(x11, "WM_PROTOCOLS")),
      ping(atom(x11, "_NET_WM_PING")) {
    listen(false);
}

// Answers go to the root window. There one hears of every window, too: only while it has to be.
void ProgramPing::listen(bool toAnswers) {
    isListening = toAnswers;
    const std::uint32_t events =
        otherEvents | (toAnswers ? std::uint32_t{XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY} : 0);
    xcb_change_window_attributes(x11.get(), x11.root(), XCB_CW_EVENT_MASK, &events);
}

bool ProgramPing::answers(xcb_window_t window) const {
    const auto property = x11.reply<xcb_get_property_reply>(
        xcb_get_property(x11.get(), false, window, protocols, XCB_ATOM_ATOM, 0, 64), "GetProperty");
    if (property->format != 32) return false;
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(property.get()));
    const auto count = static_cast<std::size_t>(xcb_get_property_value_length(property.get())) / 4;
    return std::find(atoms, atoms + count, ping) != atoms + count;
}

// The window of the program's that takes part, at or above the one with the focus; where the focus
// follows the pointer, at or below the one under it.
std::optional<xcb_window_t> ProgramPing::target() const {
    const auto focus =
        x11.reply<xcb_get_input_focus_reply>(xcb_get_input_focus(x11.get()), "GetInputFocus");
    const bool isAtPointer = focus->focus == XCB_INPUT_FOCUS_POINTER_ROOT;
    xcb_window_t window = isAtPointer ? x11.root() : focus->focus;
    constexpr int deepest = 32;
    for (int depth = 0; window != XCB_NONE && depth < deepest; ++depth) {
        if (answers(window)) return window;
        if (isAtPointer) {
            window = x11.reply<xcb_query_pointer_reply>(xcb_query_pointer(x11.get(), window),
                                                        "QueryPointer")
                         ->child;
        } else {
            window = x11.reply<xcb_query_tree_reply>(xcb_query_tree(x11.get(), window), "QueryTree")
                         ->parent;
        }
    }
    return std::nullopt;
}

bool ProgramPing::send(MonotonicTime now) {
    try {
        const auto window = target();
        if (!window) return false;
        asked = *window;
    } catch (const X11Refusal&) {
        return false;  // it has just gone
    }
    if (!isListening) listen(true);
    askedAt = now;
    xcb_client_message_event_t question{};
    question.response_type = XCB_CLIENT_MESSAGE;
    question.format = 32;
    question.window = asked;
    question.type = protocols;
    question.data.data32[0] = ping;
    question.data.data32[1] = ++number;
    question.data.data32[2] = asked;
    xcb_send_event(x11.get(), false, asked, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char*>(&question));
    return true;
}

std::optional<MonotonicTime> ProgramPing::handle(const xcb_generic_event_t& event) {
    if (!isListening || (event.response_type & 0x7F) != XCB_CLIENT_MESSAGE) return std::nullopt;
    const auto& answer = reinterpret_cast<const xcb_client_message_event_t&>(event);
    if (answer.window != x11.root() || answer.type != protocols || answer.data.data32[0] != ping ||
        answer.data.data32[1] != number || answer.data.data32[2] != asked)
        return std::nullopt;
    stop();
    return askedAt;
}

void ProgramPing::stop() {
    if (isListening) listen(false);
}

}  // namespace orvel
