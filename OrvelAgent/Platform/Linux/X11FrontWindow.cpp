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
    } else if (eventType(event) == XCB_DESTROY_NOTIFY) {
        const auto& gone = reinterpret_cast<const xcb_destroy_notify_event_t&>(event);
        if (gone.window != session->manager) return;
        session->manager = XCB_NONE;
        session->isManagerGone = true;
        look();
    }
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
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(x11.get(), named, XCB_CW_EVENT_MASK, &events);
    if (readWindow(named, session->supportingCheck) == named) {
        session->manager = named;
    } else {
        session->isManagerGone = true;
    }
}

void X11FrontWindow::look() {
    const xcb_window_t window = session->isManagerGone
                                    ? xcb_window_t{XCB_NONE}
                                    : readWindow(client->x11().root(), session->activeWindow);
    if (window != XCB_NONE && window == front) return settled.cancel();
    const auto identity = window == XCB_NONE ? std::nullopt : session->identities.read(window);
    if (identity) {
        settled.cancel();
        front = window;
        onChange(*identity);
    } else if (front != XCB_NONE && !settled.isPending()) {
        settled = queue.after(settling, [this] {
            queue.assertCurrent();
            none();
        });
    }
}

void X11FrontWindow::none() {
    settled.cancel();
    if (std::exchange(front, xcb_window_t{XCB_NONE}) != XCB_NONE) onChange({});
}

}  // namespace orvel
