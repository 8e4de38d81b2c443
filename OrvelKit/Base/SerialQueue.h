#pragma once

#include <functional>
#include <memory>
#include <string>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Base/ThreadSafety.h"
#include "OrvelKit/Base/UniqueFunction.h"

namespace orvel {

class VirtualTime;

// A task waiting for its time. Cancelling, or destroying the handle, on the queue that it was
// made on guarantees that the task never runs; from another thread the task may just be running.
// Outliving the queue is harmless. A default-made Timer is one that is over.
class Timer {
public:
    Timer() = default;
    Timer(Timer&&) noexcept = default;
    Timer& operator=(Timer&& other) noexcept;
    ~Timer();

    void cancel();
    // True until the task starts or is cancelled.
    bool isPending() const;

    struct State;  // implementation
    explicit Timer(std::shared_ptr<State> timerState);

private:
    std::shared_ptr<State> state;
};

// Runs tasks one at a time, in the order in which they were posted. State that only its tasks
// touch needs no lock; such fields are marked OWNED_BY(queue), functions that may only be called
// from its tasks RUNS_ON(queue), and a task begins with assertCurrent(), which tells the compiler
// (clang) and checks at run time.
//
// A queue outlives whatever is handed a reference to it. Destroying it lets the running task
// finish and destroys the others unrun; it must not happen on the queue itself.
//
// Everything that waits or stamps takes its clocks from the queue that it runs on, so that the
// same code runs in real time and in a test's virtual time.
class ORVEL_CAPABILITY("queue") SerialQueue {
public:
    using Task = UniqueFunction<void()>;

    // Where the tasks run.
    enum class Kind {
        ownThread,     // on a thread of its own that starts here
        callersThread  // on the thread that calls run(): the program's main queue
    };
    explicit SerialQueue(std::string label, Kind kind = Kind::ownThread);

    // In virtual time: tasks run only inside calls of `time`, on the thread that makes them.
    // `time` outlives the queue.
    SerialQueue(std::string label, VirtualTime& time);

    // On an event loop of another library's; see QueueBackend.h.
    struct Backend;
    using MakeBackend = std::function<std::unique_ptr<Backend>(const SerialQueue&)>;
    SerialQueue(std::string label, const MakeBackend& make);

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;
    ~SerialQueue();

    void post(Task task);                    // any thread
    Timer after(Duration delay, Task task);  // any thread; a delay below 0 counts as 0
    MonotonicTime now() const;               // any thread
    WallTime wallTime() const;               // any thread
    const std::string& label() const { return name; }

    bool isCurrent() const;
    // Stops the process when the caller is not one of this queue's tasks.
    void assertCurrent() const ORVEL_ATTR(assert_capability(this));

    // A main queue only: runs tasks until stop(). stop() may come from any thread, before run()
    // too. Both once.
    void run();
    void stop();

    // For QueueIo.h: sockets and descriptors on a queue.
    Backend& implementation() { return *backend; }

private:
    const std::string name;
    // Deleted by hand: tasks that end with it may still post, and unique_ptr may be null by then.
    Backend* backend;
};

// The time of the queues of one test: it stands still until told to advance. Not thread-safe; it
// belongs to the thread that makes the calls.
class VirtualTime {
public:
    VirtualTime();
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    // Runs what is due now, and what that posts, until nothing is.
    void runPending();
    // Moves time forward step by step: each timer on the way finds now() at its own due time,
    // and tasks posted on the way run before the next timer.
    void advance(Duration duration);

    MonotonicTime now() const { return monotonic; }
    WallTime wallTime() const;
    // The wall clock may be set at will, as a user may.
    void setWallTime(WallTime time);

    struct Schedule;  // implementation

private:
    friend class SerialQueue;
    MonotonicTime monotonic;
    Duration wallOffset;
    std::unique_ptr<Schedule> schedule;
};

}  // namespace orvel
