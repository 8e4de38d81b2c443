#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "OrvelAgent/Platform/Linux/HelperWindow.h"
#include "OrvelAgent/Platform/Linux/SelectionAtoms.h"

namespace orvel {

// Another program on the X display of a test, which speaks the protocol of selections by hand, so
// that it can do so badly. Used by the test's thread.
class XProgram {
public:
    using Event = xcb_generic_event_t;
    static constexpr std::chrono::seconds limit{20};

    explicit XProgram(const std::string& display) : x11(display), atoms(x11), window(x11) {}

    xcb_atom_t atom(const std::string& name) { return internAtoms(x11, {name})[0]; }
    void sync() {
        x11.reply<xcb_get_input_focus_reply>(xcb_get_input_focus(x11.get()), "GetInputFocus");
    }
    // The first event to come that `isWanted`, the others dropped.
    X11Message<Event> await(const std::function<bool(const Event&)>& isWanted) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        xcb_flush(x11.get());
        while (std::chrono::steady_clock::now() < deadline) {
            while (auto event = x11.pollEvent()) {
                if (isWanted(*event)) return event;
            }
            pollfd ready{xcb_get_file_descriptor(x11.get()), POLLIN, 0};
            poll(&ready, 1, 100);
        }
        throw std::runtime_error("no such event");
    }
    X11Message<Event> await(int type) {
        return await([type](const Event& event) { return eventType(event) == type; });
    }

    struct Property {
        xcb_atom_t type = XCB_NONE;
        int format = 0;
        std::string bytes;
        template <class T = std::uint32_t>
        std::vector<T> values() const {
            const auto* begin = reinterpret_cast<const T*>(bytes.data());
            return {begin, begin + bytes.size() / sizeof(T)};
        }
    };
    Property get(xcb_window_t of, xcb_atom_t property, bool isDeleted = true) {
        const auto answer = x11.reply<xcb_get_property_reply>(
            xcb_get_property(x11.get(), isDeleted, of, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                             1u << 24),
            "GetProperty");
        return {answer->type,
                answer->format,
                {static_cast<const char*>(xcb_get_property_value(answer.get())),
                 answer->value_len * std::size_t{answer->format} / 8}};
    }
    void set(xcb_window_t of, xcb_atom_t property, xcb_atom_t type, const std::string& bytes) {
        xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, of, property, type, 8,
                            static_cast<std::uint32_t>(bytes.size()), bytes.data());
    }
    void setValues(xcb_window_t of, xcb_atom_t property, xcb_atom_t type,
                   const std::vector<std::uint32_t>& values) {
        xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, of, property, type, 32,
                            static_cast<std::uint32_t>(values.size()), values.data());
    }

    // Asks the clipboard's owner; XCB_NONE is the answer "no".
    xcb_atom_t ask(xcb_atom_t target, xcb_timestamp_t time = XCB_CURRENT_TIME) {
        xcb_convert_selection(x11.get(), window.id(), atoms.clipboard, target, atoms.transfer,
                              time);
        const auto event = await(XCB_SELECTION_NOTIFY);
        return reinterpret_cast<const xcb_selection_notify_event_t&>(*event).property;
    }
    // The same, with what it gives.
    std::optional<Property> fetch(xcb_atom_t target, xcb_timestamp_t time = XCB_CURRENT_TIME) {
        if (ask(target, time) == XCB_NONE) return std::nullopt;
        return get(window.id(), atoms.transfer);
    }

    void own(xcb_atom_t selection) {
        xcb_set_selection_owner(x11.get(), window.id(), selection, XCB_CURRENT_TIME);
        sync();
    }
    // The next request for what it owns.
    xcb_selection_request_event_t awaitRequest() {
        const auto event = await(XCB_SELECTION_REQUEST);
        return reinterpret_cast<const xcb_selection_request_event_t&>(*event);
    }
    void answer(const xcb_selection_request_event_t& request, bool isGiven = true) {
        xcb_selection_notify_event_t notice{};
        notice.response_type = XCB_SELECTION_NOTIFY;
        notice.time = request.time;
        notice.requestor = request.requestor;
        notice.selection = request.selection;
        notice.target = request.target;
        notice.property = isGiven ? request.property : xcb_atom_t{XCB_NONE};
        xcb_send_event(x11.get(), 0, request.requestor, 0, reinterpret_cast<const char*>(&notice));
        xcb_flush(x11.get());
    }

    // Waits until `property` has been taken from that window.
    void awaitTaken(xcb_window_t of, xcb_atom_t property) {
        await([&](const Event& event) {
            const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
            return eventType(event) == XCB_PROPERTY_NOTIFY && change.window == of &&
                   change.atom == property && change.state == XCB_PROPERTY_DELETE;
        });
    }
    void watchProperties(xcb_window_t of) {
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(x11.get(), of, XCB_CW_EVENT_MASK, &events);
    }

    X11Connection x11;
    const SelectionAtoms atoms;
    HelperWindow window;
};

}  // namespace orvel
