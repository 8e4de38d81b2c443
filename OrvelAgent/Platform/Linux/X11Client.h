#pragma once

#include <xcb/xcb.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// A connection to the X server that a queue keeps for as long as the object lives: its events come
// to a handler, and when the server is not there, or no longer, it is tried again from time to
// time. It sleeps in between. Every call belongs to the queue; waiting for the server stops only
// that.
class X11Client : public std::enable_shared_from_this<X11Client> {
public:
    static constexpr std::chrono::seconds firstRetry{2};
    static constexpr std::chrono::seconds lastRetry{30};  // each wait is twice the one before

    struct Handlers {
        // May throw X11Failure: then this server is of no use, until the next try.
        std::function<void()> onConnect;
        std::function<void(const xcb_generic_event_t&)> onEvent;
        // After onConnect, also one that threw. The connection is still there, but dead.
        std::function<void()> onLost;
    };

    // `display` as in $DISPLAY; empty stands for what that says. start() goes to work.
    X11Client(SerialQueue& queue, std::string display, Handlers handlers);
    ~X11Client();
    void start();
    // No handler is called any more. On the queue, before the last reference goes.
    void end();

    bool isConnected() const;
    // Only while connected.
    X11Connection& x11() const;

    // Everything that speaks to the server, other than from a handler, does it inside of this:
    // sends it, and handles what has come in meanwhile. A lost connection ends the task and is
    // dealt with. Does nothing while there is none.
    void run(const std::function<void()>& task);

    // Inside of run() or a handler. Waits for the first new event that `isWanted`; what comes
    // before is handled later, in its order. Only for what the server itself is about to send.
    // Throws X11Failure.
    X11Message<xcb_generic_event_t> await(
        const std::function<bool(const xcb_generic_event_t&)>& isWanted);

    // Handles events, with nothing else of the queue running, until `isDone`. False: not in time.
    // For the very end.
    bool serveUntil(const std::function<bool()>& isDone, Duration limit);

private:
    struct Link;
    void connect() RUNS_ON(queue);
    void lose() RUNS_ON(queue);
    void watch() RUNS_ON(queue);
    void handleEvents() RUNS_ON(queue);
    bool hasReadEvents() RUNS_ON(queue);

    SerialQueue& queue;
    const std::string display;
    Handlers handlers OWNED_BY(queue);
    std::unique_ptr<Link> link OWNED_BY(queue);
    std::deque<X11Message<xcb_generic_event_t>> passedOver OWNED_BY(queue);  // by await()
    bool isRunning OWNED_BY(queue) = false;
    Duration nextRetry OWNED_BY(queue) = firstRetry;
    Timer retry OWNED_BY(queue);
};

// The atoms of these names, in their order, asked for all at once.
std::vector<xcb_atom_t> internAtoms(const X11Connection& x11,
                                    const std::vector<std::string>& names);

// The kind of an event, sent by the server or by another program alike; 0 is an error.
inline int eventType(const xcb_generic_event_t& event) {
    return event.response_type & 0x7F;
}

}  // namespace orvel
