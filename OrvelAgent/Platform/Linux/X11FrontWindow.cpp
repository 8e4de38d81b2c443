#include "OrvelAgent/Platform/Linux/X11FrontWindow.h"

#include <cstring>
#include <utility>

namespace orvel {

struct X11FrontWindow::Session {
    explicit Session(const X11Connection& x11) : identities(x11) {
        const auto atoms = internAtoms(x11, {"_NET_ACTIVE_WINDOW", "_NET_SUPPORTING_WM_CHECK"});
        activeWindow = atoms[0];
        supportingCheck = atoms[1];
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(x11.get(), x11.root(), XCB_CW_EVENT_MASK, &events);
    }

    const WindowIdentityReader identities;
    xcb_atom_t activeWindow = XCB_NONE, supportingCheck = XCB_NONE;
    // The last window that was called active. Managers may go on to call it so when it is closed or
    // put away and no other one takes its place.
    xcb_window_t active = XCB_NONE;
    bool isActiveHidden = false;
    xcb_window_t manager = XCB_NONE;  // the window manager's own window, as long as there is one
    bool isManagerGone = false;       // what the root window says is from before its end
};

X11FrontWindow::X11FrontWindow(SerialQueue& windowQueue, const std::string& display,
                               std::function<void(const WindowIdentity&)> changeHandler)
    : queue(windowQueue), onChange(std::move(changeHandler)) {
    queue.assertCurrent();
    client = std::make_shared<X11Client>(
        queue, display,
        X11Client::Handlers{[this] {
                                queue.assertCurrent();
                                session = std::make_unique<Session>(client->x11());
                                findManager();
                                look();
                            },
                            [this](const auto& event) {
                                queue.assertCurrent();
                                handle(event);
                            },
                            [this] {
                                queue.assertCurrent();
                                session.reset();
                                none();
                            }});
    client->start();
}

X11FrontWindow::~X11FrontWindow() {
    queue.assertCurrent();
    client->end();
}

void X11FrontWindow::handle(const xcb_generic_event_t& event) {
    if (eventType(event) == XCB_PROPERTY_NOTIFY) {
        const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (change.window != client->x11().root()) return;
        if (change.atom == session->supportingCheck) findManager();
        if (change.atom == session->supportingCheck || change.atom == session->activeWindow) look();
        return;
    }
    // The window's place is the same in each of these.
    const auto window = reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window;
    switch (eventType(event)) {
        case XCB_DESTROY_NOTIFY:
            if (window == session->manager) {
                session->manager = XCB_NONE;
                session->isManagerGone = true;
                look();
            }
            [[fallthrough]];
        case XCB_UNMAP_NOTIFY:
        case XCB_MAP_NOTIFY:
            if (window == session->active) {
                session->isActiveHidden = eventType(event) == XCB_UNMAP_NOTIFY;
                // Its number may become another window's.
                if (eventType(event) == XCB_DESTROY_NOTIFY) session->active = front = XCB_NONE;
                look();
            }
            return;
        default:
            return;
    }
}

void X11FrontWindow::watch(xcb_window_t window, std::uint32_t events) {
    xcb_change_window_attributes(client->x11().get(), window, XCB_CW_EVENT_MASK, &events);
}

xcb_window_t X11FrontWindow::readWindow(xcb_window_t of, xcb_atom_t property) {
    const auto& x11 = client->x11();
    try {
        const auto answer = x11.reply<xcb_get_property_reply>(
            xcb_get_property(x11.get(), 0, of, property, XCB_ATOM_WINDOW, 0, 1), "GetProperty");
        if (answer->format != 32 || answer->value_len != 1) return XCB_NONE;
        xcb_window_t window = XCB_NONE;
        std::memcpy(&window, xcb_get_property_value(answer.get()), sizeof(window));
        return window;
    } catch (const X11Refusal&) {
        return XCB_NONE;  // it has gone
    }
}

void X11FrontWindow::findManager() {
    const auto& x11 = client->x11();
    const xcb_window_t named = readWindow(x11.root(), session->supportingCheck);
    session->manager = XCB_NONE;
    session->isManagerGone = false;
    // A few have none, and are believed all the same.
    if (named == XCB_NONE) return;
    // Asked for its end first, and then whether it is there.
    watch(named, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    if (readWindow(named, session->supportingCheck) == named) {
        session->manager = named;
    } else {
        session->isManagerGone = true;
    }
}

xcb_window_t X11FrontWindow::activeWindow() {
    if (session->isManagerGone) return XCB_NONE;
    const auto root = client->x11().root();
    const auto window = readWindow(root, session->activeWindow);
    if (window == XCB_NONE || window == root) return XCB_NONE;
    if (window != session->active) {
        if (session->active != XCB_NONE) watch(session->active, XCB_EVENT_MASK_NO_EVENT);
        watch(window, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
        session->active = window;
        session->isActiveHidden = false;
    }
    return session->isActiveHidden ? xcb_window_t{XCB_NONE} : window;
}

void X11FrontWindow::look() {
    const xcb_window_t window = activeWindow();
    if (window != XCB_NONE && window == front) return settled.cancel();
    const auto identity = window == XCB_NONE ? std::nullopt : session->identities.read(window);
    if (identity) {
        settled.cancel();
        front = window;
        isFrontTold = true;
        onChange(*identity);
        return;
    }
    if (window != XCB_NONE) session->active = XCB_NONE;  // it has gone
    if (isFrontTold && !settled.isPending()) {
        settled = queue.after(settling, [this] {
            queue.assertCurrent();
            none();
        });
    }
}

void X11FrontWindow::none() {
    settled.cancel();
    front = XCB_NONE;
    if (std::exchange(isFrontTold, false)) onChange({});
}

}  // namespace orvel
