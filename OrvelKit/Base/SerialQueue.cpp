#include "OrvelKit/Base/SerialQueue.h"

#include <pthread.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <thread>

#include "OrvelKit/Base/QueueBackend.h"
#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

thread_local const SerialQueue* EnteredQueue::current = nullptr;

Timer::Timer(std::shared_ptr<State> timerState) : state(std::move(timerState)) {}

Timer& Timer::operator=(Timer&& other) noexcept {
    if (this != &other) {
        cancel();
        state = std::move(other.state);
    }
    return *this;
}

Timer::~Timer() {
    cancel();
}

void Timer::cancel() {
    // What the task held is destroyed here, outside the lock.
    if (auto ended = std::move(state)) ended->take();
}

bool Timer::isPending() const {
    return state && state->isPending();
}

void SerialQueue::Backend::stop() {
    std::abort();
}
void SerialQueue::Backend::run() {
    std::abort();
}
boost::asio::io_context& SerialQueue::Backend::io() {
    std::abort();
}

namespace {

class RealBackend final : public SerialQueue::Backend {
public:
    RealBackend(const SerialQueue& owner, SerialQueue::Kind kind)
        : queue(owner), work(context.get_executor()) {
        if (kind == SerialQueue::Kind::ownThread) {
            thread = std::thread([this] {
#if defined(__APPLE__)
                pthread_setname_np(queue.label().c_str());
#else
                pthread_setname_np(pthread_self(), queue.label().substr(0, 15).c_str());
#endif
                run();
            });
        }
    }

    ~RealBackend() override {
        context.stop();
        if (thread.joinable()) {
            if (thread.get_id() == std::this_thread::get_id()) std::abort();
            thread.join();
        }
    }

    void post(SerialQueue::Task task) override {
        boost::asio::post(context, std::move(task));
    }

    void schedule(Duration delay, std::shared_ptr<Timer::State> timer) override {
        auto clock = std::make_unique<boost::asio::steady_timer>(context, now() + delay);
        auto& started = *clock;
        // The timer object lives in its own handler. A cancelled one still comes due, empty.
        started.async_wait([clock = std::move(clock),
                            due = DueTimer(std::move(timer))](auto) mutable { due.run(); });
    }

    MonotonicTime now() const override {
        return std::chrono::steady_clock::now();
    }
    WallTime wallTime() const override {
        return std::chrono::system_clock::now();
    }

    void run() override {
        const EnteredQueue entered(&queue);
        context.run();
    }
    void stop() override {
        context.stop();
    }
    boost::asio::io_context& io() override {
        return context;
    }

private:
    const SerialQueue& queue;
    // One thread runs it, but others post: asio's own locking stays on.
    boost::asio::io_context context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work;
    std::thread thread;
};

}  // namespace

struct VirtualTime::Schedule {
    struct Entry {
        const SerialQueue* queue;
        SerialQueue::Task task;         // a posted one
        std::optional<DueTimer> timer;  // or a timer's
    };
    std::multimap<MonotonicTime, Entry> entries;  // equal times keep their order of arrival

    void forget(const SerialQueue& queue) {
        // The tasks' own destructors may post or cancel: take them out first.
        std::vector<Entry> dropped;
        for (auto it = entries.begin(); it != entries.end();) {
            if (it->second.queue == &queue) {
                dropped.push_back(std::move(it->second));
                it = entries.erase(it);
            } else {
                ++it;
            }
        }
    }
};

namespace {

class VirtualBackend final : public SerialQueue::Backend {
public:
    VirtualBackend(const SerialQueue& owner, VirtualTime& virtualTime,
                   VirtualTime::Schedule& virtualSchedule)
        : queue(owner), time(virtualTime), schedules(virtualSchedule) {}
    ~VirtualBackend() override { schedules.forget(queue); }

    void post(SerialQueue::Task task) override {
        schedules.entries.emplace(
            time.now(), VirtualTime::Schedule::Entry{&queue, std::move(task), std::nullopt});
    }
    void schedule(Duration delay, std::shared_ptr<Timer::State> timer) override {
        schedules.entries.emplace(
            time.now() + delay,
            VirtualTime::Schedule::Entry{&queue, nullptr, DueTimer(std::move(timer))});
    }
    MonotonicTime now() const override { return time.now(); }
    WallTime wallTime() const override { return time.wallTime(); }

private:
    const SerialQueue& queue;
    VirtualTime& time;
    VirtualTime::Schedule& schedules;
};

}  // namespace

SerialQueue::SerialQueue(std::string label, Kind kind) : name(std::move(label)) {
    backend = new RealBackend(*this, kind);
}

SerialQueue::SerialQueue(std::string label, VirtualTime& time)
    : name(std::move(label)), backend(new VirtualBackend(*this, time, *time.schedule)) {}

SerialQueue::SerialQueue(std::string label, const MakeBackend& make)
    : name(std::move(label)), backend(make(*this).release()) {}

SerialQueue::~SerialQueue() {
    delete backend;
}

void SerialQueue::post(Task task) {
    backend->post(std::move(task));
}

Timer SerialQueue::after(Duration delay, Task task) {
    auto timer = std::make_shared<Timer::State>();
    timer->task = std::move(task);
    backend->schedule(std::max(delay, Duration::zero()), timer);
    return Timer(std::move(timer));
}

MonotonicTime SerialQueue::now() const {
    return backend->now();
}
WallTime SerialQueue::wallTime() const {
    return backend->wallTime();
}
bool SerialQueue::isCurrent() const {
    return EnteredQueue::isCurrent(this);
}

void SerialQueue::assertCurrent() const {
    if (isCurrent()) return;
    std::fprintf(stderr, "orvel: touched off its queue %s\n", name.c_str());
    std::abort();
}

void SerialQueue::run() {
    backend->run();
}
void SerialQueue::stop() {
    backend->stop();
}

boost::asio::io_context& ioContext(SerialQueue& queue) {
    return queue.implementation().io();
}

// Neither clock starts at zero, so that "the distant past" lies before both.
VirtualTime::VirtualTime()
    : monotonic(std::chrono::hours(1000)), schedule(std::make_unique<Schedule>()) {
    setWallTime(WallTime(std::chrono::seconds(1'750'000'000)));
}
VirtualTime::~VirtualTime() = default;

WallTime VirtualTime::wallTime() const {
    return WallTime(
        std::chrono::duration_cast<WallTime::duration>(monotonic.time_since_epoch() + wallOffset));
}
void VirtualTime::setWallTime(WallTime time) {
    wallOffset = time.time_since_epoch() - monotonic.time_since_epoch();
}

void VirtualTime::runPending() {
    advance(Duration::zero());
}

void VirtualTime::advance(Duration duration) {
    const MonotonicTime until = monotonic + duration;
    auto& entries = schedule->entries;
    while (!entries.empty() && entries.begin()->first <= until) {
        auto node = entries.extract(entries.begin());
        monotonic = std::max(monotonic, node.key());
        Schedule::Entry& entry = node.mapped();
        const EnteredQueue entered(entry.queue);
        if (entry.task) {
            entry.task();
        } else {
            entry.timer->run();
        }
    }
    monotonic = until;
}

}  // namespace orvel
