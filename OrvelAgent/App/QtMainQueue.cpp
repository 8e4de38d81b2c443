#include "OrvelAgent/App/QtMainQueue.h"

#include <QBasicTimer>
#include <QCoreApplication>
#include <QEvent>
#include <QTimerEvent>
#include <deque>
#include <map>
#include <optional>

#include "OrvelKit/Base/QueueBackend.h"

namespace orvel {

namespace {

// Qt counts milliseconds in an int.
constexpr std::chrono::hours longestWait{24};

class QtBackend final : public QObject, public SerialQueue::Backend {
public:
    explicit QtBackend(const SerialQueue& queue) : entered(&queue) {}

    ~QtBackend() override {
        std::deque<SerialQueue::Task> unrun;
        Timers pending;
        {
            const std::lock_guard hold(mutex);
            isOver = true;
            unrun.swap(tasks);
            pending.swap(timers);
        }
        // Now they are destroyed. Whatever they post is dropped.
    }

    void post(SerialQueue::Task task) override {
        const std::lock_guard hold(mutex);
        if (isOver) return;
        tasks.push_back(std::move(task));
        wake();
    }

    void schedule(Duration delay, std::shared_ptr<Timer::State> timer) override {
        DueTimer due(std::move(timer));
        const std::lock_guard hold(mutex);
        if (isOver) return;
        const auto entry = timers.emplace(now() + delay, std::move(due));
        if (entry == timers.begin()) wake();
    }

    MonotonicTime now() const override { return std::chrono::steady_clock::now(); }
    WallTime wallTime() const override { return std::chrono::system_clock::now(); }

    void run() override {
        {
            const std::lock_guard hold(mutex);
            if (isStopped) return;
        }
        QCoreApplication::exec();
    }

    void stop() override {
        const std::lock_guard hold(mutex);
        isStopped = true;
        wake();
    }

private:
    using Timers = std::multimap<MonotonicTime, DueTimer>;

    // Holding the lock. One event is enough for all that is there when it comes.
    void wake() {
        if (std::exchange(isAwake, true)) return;
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

    void customEvent(QEvent*) override {
        std::size_t count;
        {
            const std::lock_guard hold(mutex);
            isAwake = false;
            count = tasks.size();
        }
        // What these post waits for the next event, so that windows get their turn.
        for (; count > 0; --count) {
            auto task = take();
            if (!task) break;
            (*task)();
        }
        const std::lock_guard hold(mutex);
        if (isStopped) {
            QCoreApplication::exit();
        } else {
            if (!tasks.empty()) wake();
            arm();
        }
    }

    void timerEvent(QTimerEvent*) override {
        while (auto due = takeDue())
            due->run();
        const std::lock_guard hold(mutex);
        arm();
    }

    // Nothing: a nested loop has run it, or the queue is stopped.
    std::optional<SerialQueue::Task> take() {
        const std::lock_guard hold(mutex);
        if (isStopped || tasks.empty()) return std::nullopt;
        auto task = std::move(tasks.front());
        tasks.pop_front();
        return task;
    }

    std::optional<DueTimer> takeDue() {
        const std::lock_guard hold(mutex);
        if (isStopped || timers.empty() || timers.begin()->first > now()) return std::nullopt;
        return std::move(timers.extract(timers.begin()).mapped());
    }

    // Holding the lock, on the application's thread. Nobody is woken for a cancelled timer that
    // comes first.
    void arm() {
        while (!timers.empty() && !timers.begin()->second.isPending())
            timers.erase(timers.begin());
        if (timers.empty()) return clock.stop();
        const auto wait =
            std::clamp<Duration>(timers.begin()->first - now(), Duration::zero(), longestWait);
        using std::chrono::milliseconds;
        clock.start(static_cast<int>(std::chrono::ceil<milliseconds>(wait).count()),
                    Qt::PreciseTimer, this);
    }

    const EnteredQueue entered;  // the thread belongs to this queue
    QBasicTimer clock;           // for the earliest of `timers`
    std::mutex mutex;
    std::deque<SerialQueue::Task> tasks;
    Timers timers;  // equal times keep their order of arrival
    bool isAwake = false;
    bool isStopped = false;
    bool isOver = false;
};

}  // namespace

QtMainQueue::QtMainQueue()
    : SerialQueue("main", [](const SerialQueue& queue) -> std::unique_ptr<Backend> {
          return std::make_unique<QtBackend>(queue);
      }) {}

}  // namespace orvel
