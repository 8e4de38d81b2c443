#pragma once

#include <boost/asio/posix/stream_descriptor.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "OrvelAgent/Platform/EventPoster.h"
#include "OrvelAgent/Platform/Linux/InputBacklog.h"
#include "OrvelAgent/Platform/Linux/X11Monitors.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

class X11Input;

// The part of LinuxEventPoster that lives on "orvel.input" and waits for the X server: it connects,
// connects again when the server has gone, posts what waits in the backlog, and keeps up to date
// what the poster answers from. While there is no server, events are dropped. Functions without a
// remark belong to the queue.
class InputWorker : public std::enable_shared_from_this<InputWorker> {
public:
    // `queue` outlives this.
    InputWorker(SerialQueue& queue, std::string display);
    ~InputWorker();

    void begin();
    // Takes events from the backlog, after wake-ups and at each end of a pause.
    void work();
    // Lets go of everything and gives all back; of no more use from then on. `done` is called on
    // the queue, unless the queue ends before.
    void end(std::function<void()> done);

    // Looks for the server or for the pointer, unless that was just done.
    void refresh();

    // Any thread:
    InputBacklog backlog;
    std::optional<EventPoster::Point> pointer() const;
    std::optional<EventPoster::Area> display(std::optional<std::uint32_t> displayID) const;
    // Breaks a wait for the server; the connection is lost.
    void interrupt();

private:
    using Step = void (InputWorker::*)();
    Timer after(Duration delay, Step step) RUNS_ON(queue);
    void connect() RUNS_ON(queue);
    void lose() RUNS_ON(queue);
    void attempt(Step step) RUNS_ON(queue);
    void postEvents() RUNS_ON(queue);
    void joinTexts() RUNS_ON(queue);
    void look() RUNS_ON(queue);
    void tidy() RUNS_ON(queue);
    void finish() RUNS_ON(queue);
    void close() RUNS_ON(queue);
    void followServer() RUNS_ON(queue);
    void noteEvents() RUNS_ON(queue) {}
    void publish() RUNS_ON(queue);

    struct Connection;

    SerialQueue& queue;
    const std::string displayName;
    std::shared_ptr<Connection> connection OWNED_BY(queue);  // nullptr: none at present
    std::deque<InputEvent> pending OWNED_BY(queue);
    Timer resume OWNED_BY(queue);    // pending while the next event has to wait
    Timer nextLook OWNED_BY(queue);  // at the pointer
    Timer nextTidy OWNED_BY(queue);
    Timer reconnect OWNED_BY(queue);
    Duration patience OWNED_BY(queue);  // until the next attempt to connect
    std::optional<MonotonicTime> lastAttempt OWNED_BY(queue);
    std::function<void()> onEnd OWNED_BY(queue);
    bool isEnding OWNED_BY(queue) = false;

    mutable std::mutex mutex;  // guards the following
    std::optional<EventPoster::Point> knownPointer;
    std::vector<X11Monitor> knownMonitors;
    int descriptor = -1;
    bool isInterrupted = false;
};

}  // namespace orvel
