#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "OrvelKit/Base/SerialQueue.h"

namespace boost::asio {
class io_context;
}

namespace orvel {

// What a queue is made of, for those who build one on another event loop. Nobody else includes it.

// The queue's side and the handle share this. `task` is taken out when it starts or is cancelled.
struct Timer::State {
    std::mutex mutex;
    SerialQueue::Task task;

    SerialQueue::Task take() {
        const std::lock_guard hold(mutex);
        return std::exchange(task, nullptr);
    }
    bool isPending() {
        const std::lock_guard hold(mutex);
        return static_cast<bool>(task);
    }
};

// The queue's hold on a timer. A queue that ends takes the task with it even when somebody still
// has the handle: often it is the task itself that keeps the handle's owner alive.
class DueTimer {
public:
    explicit DueTimer(std::shared_ptr<Timer::State> timerState) : state(std::move(timerState)) {}
    DueTimer(DueTimer&&) noexcept = default;
    DueTimer& operator=(DueTimer&&) noexcept = default;
    ~DueTimer() {
        if (state) state->take();
    }
    bool isPending() const { return state->isPending(); }
    void run() {
        if (auto task = state->take()) task();
    }

private:
    std::shared_ptr<Timer::State> state;
};

// Marks the queue whose task runs on this thread, for as long as it lives. They nest.
class EnteredQueue {
public:
    explicit EnteredQueue(const SerialQueue* queue) : previous(std::exchange(current, queue)) {}
    ~EnteredQueue() { current = previous; }
    EnteredQueue(const EnteredQueue&) = delete;
    EnteredQueue& operator=(const EnteredQueue&) = delete;

    static bool isCurrent(const SerialQueue* queue) { return current == queue; }

private:
    static thread_local const SerialQueue* current;
    const SerialQueue* const previous;
};

// The event loop under a queue. Destroying it lets the running task finish and destroys the others
// unrun; their destructors may still post, to no effect. What a kind of queue lacks is a
// programming error to ask for.
struct SerialQueue::Backend {
    virtual ~Backend() = default;
    // Any thread.
    virtual void post(Task task) = 0;
    virtual void schedule(Duration delay, std::shared_ptr<Timer::State> timer) = 0;
    virtual MonotonicTime now() const = 0;
    virtual WallTime wallTime() const = 0;
    virtual void stop();
    // The thread that made the queue.
    virtual void run();
    virtual boost::asio::io_context& io();
};

}  // namespace orvel
