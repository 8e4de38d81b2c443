#include "OrvelAgent/Platform/Linux/X11Client.h"

#include <poll.h>

#include <algorithm>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <utility>

#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

struct X11Client::Link {
    Link(boost::asio::io_context& io, const std::string& display) : x11(display), socket(io) {
        boost::system::error_code error;
        socket.assign(xcb_get_file_descriptor(x11.get()), error);
        if (error) throw X11Failure("the X server's socket cannot be waited for");
    }
    // The descriptor is the connection's.
    ~Link() {
        if (socket.is_open()) socket.release();
    }

    X11Connection x11;
    boost::asio::posix::stream_descriptor socket;
    bool isWatched = false;
};

X11Client::X11Client(SerialQueue& clientQueue, std::string displayName, Handlers clientHandlers)
    : queue(clientQueue), display(std::move(displayName)), handlers(std::move(clientHandlers)) {}

X11Client::~X11Client() = default;

void X11Client::start() {
    queue.assertCurrent();
    connect();
}

void X11Client::end() {
    queue.assertCurrent();
    retry.cancel();
    handlers = {};
    passedOver.clear();
    link.reset();
}

bool X11Client::isConnected() const {
    queue.assertCurrent();
    return link != nullptr;
}

X11Connection& X11Client::x11() const {
    queue.assertCurrent();
    return link->x11;
}

void X11Client::connect() {
    try {
        link = std::make_unique<Link>(ioContext(queue), display);
    } catch (const X11Failure&) {
        return lose();
    }
    run([this] {
        queue.assertCurrent();
        if (handlers.onConnect) handlers.onConnect();
        nextRetry = firstRetry;
    });
}

void X11Client::lose() {
    if (link && handlers.onLost) handlers.onLost();
    passedOver.clear();
    link.reset();
    retry = queue.after(nextRetry, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->connect();
    });
    nextRetry = std::min<Duration>(nextRetry * 2, lastRetry);
}

void X11Client::run(const std::function<void()>& task) {
    queue.assertCurrent();
    if (!link) return;
    if (isRunning) return task();
    isRunning = true;
    bool isLost = false;
    try {
        task();
        do {
            handleEvents();
            xcb_flush(link->x11.get());
        } while (hasReadEvents());
        watch();
    } catch (const X11Failure&) {
        isLost = true;
    }
    isRunning = false;
    if (isLost) lose();
}

void X11Client::handleEvents() {
    for (;;) {
        X11Message<xcb_generic_event_t> event;
        if (!passedOver.empty()) {
            event = std::move(passedOver.front());
            passedOver.pop_front();
        } else {
            event = link->x11.pollEvent();
        }
        if (!event) return;
        if (handlers.onEvent) handlers.onEvent(*event);
    }
}

// Sending reads as well, when the server does not take it all at once; the socket does not tell of
// what has been read.
bool X11Client::hasReadEvents() {
    X11Message<xcb_generic_event_t> event(xcb_poll_for_queued_event(link->x11.get()));
    if (!event) return false;
    passedOver.push_back(std::move(event));
    return true;
}

void X11Client::watch() {
    if (std::exchange(link->isWatched, true)) return;
    link->socket.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                            [weak = weak_from_this()](const boost::system::error_code& error) {
                                const auto self = weak.lock();
                                if (!self || error == boost::asio::error::operation_aborted) return;
                                self->queue.assertCurrent();
                                if (!self->link) return;
                                self->link->isWatched = false;
                                self->run([] {});
                            });
}

X11Message<xcb_generic_event_t> X11Client::await(
    const std::function<bool(const xcb_generic_event_t&)>& isWanted) {
    queue.assertCurrent();
    xcb_flush(link->x11.get());
    for (;;) {
        X11Message<xcb_generic_event_t> event(xcb_wait_for_event(link->x11.get()));
        if (!event) throw X11Failure("the connection to the X server is lost");
        if (isWanted(*event)) return event;
        passedOver.push_back(std::move(event));
    }
}

bool X11Client::serveUntil(const std::function<bool()>& isDone, Duration limit) {
    queue.assertCurrent();
    const auto deadline = queue.now() + limit;
    for (;;) {
        run([] {});
        if (!link || isDone()) break;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - queue.now());
        if (left.count() <= 0) break;
        pollfd ready{xcb_get_file_descriptor(link->x11.get()), POLLIN, 0};
        poll(&ready, 1, static_cast<int>(left.count()));
    }
    return isDone();
}

std::vector<xcb_atom_t> internAtoms(const X11Connection& x11,
                                    const std::vector<std::string>& names) {
    std::vector<xcb_intern_atom_cookie_t> asked;
    for (const auto& name : names) {
        asked.push_back(
            xcb_intern_atom(x11.get(), 0, static_cast<std::uint16_t>(name.size()), name.data()));
    }
    std::vector<xcb_atom_t> atoms;
    for (const auto& cookie : asked)
        atoms.push_back(x11.reply<xcb_intern_atom_reply>(cookie, "InternAtom")->atom);
    return atoms;
}

}  // namespace orvel
