#include "Tests/Support/XReader.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdio>
#include <stdexcept>
#include <utility>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "Tests/Support/BackgroundProcess.h"

namespace orvel {

struct XReader::Client {
    Client(const std::string& name, bool isManaged)
        : display(XOpenDisplay(name.c_str())), other(name), ending(eventfd(0, EFD_CLOEXEC)) {
        if (!display) throw std::runtime_error("no X server at " + name);
        XSetWindowAttributes attributes{};
        attributes.override_redirect = isManaged ? False : True;
        attributes.event_mask = KeyPressMask | KeyReleaseMask | ButtonPressMask |
                                ButtonReleaseMask | PointerMotionMask | StructureNotifyMask |
                                (isManaged ? FocusChangeMask : 0);
        const auto& screen = other.screen();
        window = XCreateWindow(display, DefaultRootWindow(display), 0, 0, screen.width_in_pixels,
                               screen.height_in_pixels, 0, CopyFromParent, InputOutput,
                               CopyFromParent, CWOverrideRedirect | CWEventMask, &attributes);
        XMapRaised(display, window);
        XEvent event;
        XWindowEvent(display, window, isManaged ? FocusChangeMask : StructureNotifyMask, &event);
        if (!isManaged) XSetInputFocus(display, window, RevertToPointerRoot, CurrentTime);
        // Reads the table of keys and asks to be told of changes, as toolkits do when they start.
        // Left to the first key, Xlib would ask only after reading, and overlook changes in
        // between.
        XKeysymToKeycode(display, XStringToKeysym("a"));
        XKeyEvent key{};
        key.type = KeyPress;
        key.display = display;
        key.keycode = 38;
        XLookupString(&key, nullptr, 0, nullptr, nullptr);
        XSync(display, False);
    }
    ~Client() {
        XCloseDisplay(display);
        close(ending);
    }
    Display* display;  // the thread's
    Window window = 0;
    X11Connection other;  // the test's
    int ending;
};

namespace {

std::string modifiers(unsigned state) {
    char text[16] = "";
    if (state & 0xFF) std::snprintf(text, sizeof text, ":%x", state & 0xFF);
    return text;
}

std::string place(int x, int y) {
    return '@' + std::to_string(x) + ',' + std::to_string(y);
}

}  // namespace

XReader::XReader(const std::string& display, Kind kind)
    : client(std::make_unique<Client>(display, kind == Kind::managed)), thread([this] { run(); }) {}

XReader::~XReader() {
    const std::uint64_t one = 1;
    if (write(client->ending, &one, sizeof one) == sizeof one) thread.join();
}

void XReader::run() {
    auto* display = client->display;
    for (;;) {
        pollfd waits[] = {{ConnectionNumber(display), POLLIN, 0}, {client->ending, POLLIN, 0}};
        if (XPending(display) == 0) poll(waits, 2, -1);
        if (waits[1].revents || (waits[0].revents & (POLLERR | POLLHUP))) return;
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type == MappingNotify) XRefreshKeyboardMapping(&event.xmapping);
            std::string note;
            char32_t character = 0;
            if (event.type == KeyPress || event.type == KeyRelease) {
                KeySym symbol = NoSymbol;
                char ignored[16];
                XLookupString(&event.xkey, ignored, sizeof ignored, &symbol, nullptr);
                char name[32] = "";
                xkb_keysym_get_name(static_cast<xkb_keysym_t>(symbol), name, sizeof name);
                note = (event.type == KeyPress ? "+" : "-") + std::string(name) +
                       modifiers(event.xkey.state);
                if (event.type == KeyPress)
                    character = xkb_keysym_to_utf32(static_cast<xkb_keysym_t>(symbol));
            } else if (event.type == ButtonPress || event.type == ButtonRelease) {
                note =
                    (event.type == ButtonPress ? "+b" : "-b") +
                    std::to_string(event.xbutton.button) +
                    (event.xbutton.button > 3 ? ""
                                              : place(event.xbutton.x_root, event.xbutton.y_root)) +
                    modifiers(event.xbutton.state);
            } else if (event.type == MotionNotify) {
                note = 'm' + place(event.xmotion.x_root, event.xmotion.y_root);
            }
            const std::lock_guard hold(mutex);
            if (event.type == MotionNotify)
                motion = {event.xmotion.x_root, event.xmotion.y_root,
                          std::chrono::steady_clock::now()};
            if (event.type == KeyPress) presses.key = std::chrono::steady_clock::now();
            if (event.type == ButtonPress) presses.button = std::chrono::steady_clock::now();
            if (event.type == ClientMessage) ++marksSeen;
            if (!note.empty()) notes += (notes.empty() ? "" : " ") + note;
            char utf8[8];
            if ((character >= ' ' || character == '\t') &&
                xkb_keysym_to_utf8(xkb_utf32_to_keysym(character), utf8, sizeof utf8) > 0)
                text += utf8;
        }
    }
}

void XReader::catchUp() {
    xcb_client_message_event_t mark{};
    mark.response_type = XCB_CLIENT_MESSAGE;
    mark.format = 32;
    mark.window = static_cast<xcb_window_t>(client->window);
    mark.type = XCB_ATOM_CARDINAL;
    const int number = ++marksSent;
    xcb_send_event(client->other.get(), false, mark.window, 0,
                   reinterpret_cast<const char*>(&mark));
    xcb_flush(client->other.get());
    eventually([&] {
        const std::lock_guard hold(mutex);
        return marksSeen >= number;
    });
}

std::string XReader::take() {
    catchUp();
    const std::lock_guard hold(mutex);
    text.clear();
    return std::exchange(notes, {});
}

std::string XReader::takeText() {
    catchUp();
    const std::lock_guard hold(mutex);
    notes.clear();
    return std::exchange(text, {});
}

std::string XReader::seenText() {
    const std::lock_guard hold(mutex);
    return text;
}

void XReader::yield() {
    auto* connection = client->other.get();
    xcb_unmap_window(connection, static_cast<xcb_window_t>(client->window));
    xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_POINTER_ROOT,
                        XCB_CURRENT_TIME);
    xcb_warp_pointer(connection, XCB_NONE, client->other.root(), 0, 0, 0, 0, 20, 20);
    eventually([&] {
        return client->other
                   .reply<xcb_query_pointer_reply>(
                       xcb_query_pointer(connection, client->other.root()), "QueryPointer")
                   ->child != XCB_NONE;
    });
}

XReader::Presses XReader::lastPresses() {
    const std::lock_guard hold(mutex);
    return presses;
}

XReader::Motion XReader::lastMotion() {
    const std::lock_guard hold(mutex);
    return motion;
}

}  // namespace orvel
