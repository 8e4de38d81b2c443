#include "OrvelAgent/Platform/Linux/PointerWatch.h"

#include <xcb/xinput.h>

#include <utility>

namespace orvel {

PointerWatch::PointerWatch(const X11Connection& connection) : x11(connection) {
    if (const auto* input = x11.extension(xcb_input_id)) {
        const auto version = x11.reply<xcb_input_xi_query_version_reply>(
            xcb_input_xi_query_version(x11.get(), 2, 2), "XIQueryVersion");
        if (version->major_version >= 2) inputOpcode = input->major_opcode;
    }
    select(true);
    look();
}

void PointerWatch::select(bool wanted) {
    if (inputOpcode == 0) return;
    isListening = wanted;
    const struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                wanted ? static_cast<std::uint32_t>(XCB_INPUT_XI_EVENT_MASK_RAW_MOTION) : 0};
    xcb_input_xi_select_events(x11.get(), x11.root(), 1, &selection.head);
}

bool PointerWatch::handle(const xcb_generic_event_t& event) {
    if ((event.response_type & 0x7F) != XCB_GE_GENERIC || inputOpcode == 0) return false;
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
    if (generic.extension != inputOpcode || generic.event_type != XCB_INPUT_RAW_MOTION)
        return false;
    if (!isListening) return false;  // sent before we said so
    select(false);
    stillLooks = 0;
    return true;
}

bool PointerWatch::look() {
    if (ask()) stillLooks = 0;
    if (isListening || inputOpcode == 0) return false;
    if (stillLooks++ == 0) return true;
    // At rest. What happened before this question is seen by it, what happens after it by an event.
    select(true);
    ask();
    return false;
}

bool PointerWatch::ask() {
    const auto answer = x11.reply<xcb_query_pointer_reply>(xcb_query_pointer(x11.get(), x11.root()),
                                                           "QueryPointer");
    const Place now{answer->root_x, answer->root_y};
    return std::exchange(last, now) != now;
}

}  // namespace orvel
