// Core Foundation's contract: the main thread's run loop runs what is given to the main dispatch
// queue, beside timers, notifications and what AppKit does; it sleeps while there is nothing.
// Running it returns once somebody stops it, from a block of that queue too.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <atomic>
#include <deque>
#include <map>

#include "OrvelAgent/Platform/MainQueue.h"
#include "OrvelKit/Base/QueueBackend.h"

namespace orvel {

namespace {

class RunLoopBackend final : public SerialQueue::Backend {
public:
    explicit RunLoopBackend(const SerialQueue& owner) : queue(owner) {}

    ~RunLoopBackend() override {
        std::deque<SerialQueue::Task> unrun;
        std::map<std::uint64_t, DueTimer> pending;
        const std::lock_guard hold(waiting->mutex);
        waiting->isOver = true;
        unrun.swap(waiting->tasks);
        pending.swap(waiting->timers);
        // Destroyed after the lock is let go; what they post then is dropped.
    }

    void post(SerialQueue::Task task) override {
        const std::lock_guard hold(waiting->mutex);
        if (waiting->isOver) return;
        waiting->tasks.push_back(std::move(task));
        const auto shared = waiting;
        dispatch_async(dispatch_get_main_queue(), ^{
          shared->runOne();
        });
    }

    void schedule(Duration delay, std::shared_ptr<Timer::State> timer) override {
        DueTimer due(std::move(timer));
        const std::lock_guard hold(waiting->mutex);
        if (waiting->isOver) return;
        const std::uint64_t number = ++waiting->lastTimer;
        waiting->timers.emplace(number, std::move(due));
        const auto shared = waiting;
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, delay.count()), dispatch_get_main_queue(),
                       ^{
                         shared->runTimer(number);
                       });
    }

    MonotonicTime now() const override { return std::chrono::steady_clock::now(); }
    WallTime wallTime() const override { return std::chrono::system_clock::now(); }

    void run() override {
        const EnteredQueue entered(&queue);
        if (!isStopped) CFRunLoopRun();
    }

    void stop() override {
        isStopped = true;
        dispatch_async(dispatch_get_main_queue(), ^{
          CFRunLoopStop(CFRunLoopGetMain());
        });
    }

private:
    // The blocks share it with the queue, which may go before they run.
    struct Waiting {
        std::mutex mutex;  // guards the fields below
        bool isOver = false;
        std::deque<SerialQueue::Task> tasks;
        std::map<std::uint64_t, DueTimer> timers;
        std::uint64_t lastTimer = 0;

        void runOne() {
            SerialQueue::Task task;
            {
                const std::lock_guard hold(mutex);
                if (tasks.empty()) return;
                task = std::move(tasks.front());
                tasks.pop_front();
            }
            task();
        }

        void runTimer(std::uint64_t number) {
            std::unique_lock hold(mutex);
            auto due = timers.extract(number);
            hold.unlock();
            if (due) due.mapped().run();
        }
    };

    const SerialQueue& queue;
    const std::shared_ptr<Waiting> waiting = std::make_shared<Waiting>();
    std::atomic<bool> isStopped{false};
};

}  // namespace

std::unique_ptr<SerialQueue> makeMainQueue() {
    return std::make_unique<SerialQueue>(
        "main", [](const SerialQueue& queue) { return std::make_unique<RunLoopBackend>(queue); });
}

}  // namespace orvel
