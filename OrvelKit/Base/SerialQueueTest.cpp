#include "OrvelKit/Base/SerialQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace orvel {
namespace {

TEST(SerialQueue, runsWhatManyThreadsPostOneAtATimeAndInEachOnesOrder) {
    SerialQueue queue("orvel.test");
    constexpr int posters = 4, tasks = 500;
    std::vector<int> last(posters, -1);  // touched on the queue only; TSan would tell
    std::promise<void> done;
    int ran = 0;
    std::vector<std::thread> threads;
    for (int p = 0; p < posters; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < tasks; ++i) {
                queue.post([&, p, i] {
                    EXPECT_TRUE(queue.isCurrent());
                    EXPECT_EQ(last[p], i - 1);
                    last[p] = i;
                    if (++ran == posters * tasks) done.set_value();
                });
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_EQ(done.get_future().wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueue, aTimerFiresAfterItsDelayInRealTime) {
    SerialQueue queue("orvel.test");
    std::promise<MonotonicTime> fired;
    const auto start = queue.now();
    auto timer = queue.after(5ms, [&] { fired.set_value(queue.now()); });
    auto result = fired.get_future();
    ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
    EXPECT_GE(result.get() - start, 5ms);
}

TEST(SerialQueue, aTimerCancelledOnItsQueueNeverFires) {
    SerialQueue queue("orvel.test");
    std::promise<bool> outcome;
    bool fired = false;
    Timer timer, later;
    queue.post([&] {
        timer = queue.after(0ms, [&] { fired = true; });
        timer.cancel();
        later = queue.after(1ms, [&] { outcome.set_value(fired); });
    });
    auto result = outcome.get_future();
    ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(result.get());
}

TEST(SerialQueue, destructionDestroysWaitingTasksUnrun) {
    auto held = std::make_shared<int>(1);
    std::weak_ptr<int> watch = held;
    Timer timer;
    {
        SerialQueue queue("orvel.test");
        timer = queue.after(1h, [held = std::move(held)] { FAIL() << *held; });
    }
    timer.cancel();  // the handle may outlive the queue
    EXPECT_TRUE(watch.expired());
}

TEST(SerialQueue, aTaskThatKeepsItsOwnTimerAliveEndsWithTheQueue) {
    struct Owner {
        Timer timer;
    };
    std::vector<std::weak_ptr<Owner>> watches;
    VirtualTime time;
    for (const bool isVirtual : {false, true}) {
        auto owner = std::make_shared<Owner>();
        const auto queue = isVirtual ? std::make_unique<SerialQueue>("orvel.test", time)
                                     : std::make_unique<SerialQueue>("orvel.test");
        owner->timer = queue->after(1h, [owner] { FAIL(); });
        watches.push_back(owner);
    }
    for (const auto& each : watches)
        EXPECT_TRUE(each.expired());
}

TEST(SerialQueue, theMainQueueRunsOnTheCallersThreadUntilStopped) {
    SerialQueue queue("main", SerialQueue::Kind::callersThread);
    std::thread::id ranOn;
    queue.post([&] {
        ranOn = std::this_thread::get_id();
        queue.stop();
    });
    queue.run();
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(SerialQueueDeathTest, touchingItFromOutsideStopsTheProcess) {
    VirtualTime time;
    SerialQueue queue("orvel.test", time);
    EXPECT_DEATH(queue.assertCurrent(), "touched off its queue orvel.test");
}

TEST(VirtualTime, runsTimersInOrderOfTheirTimesAndPostsBeforeLaterTimers) {
    VirtualTime time;
    SerialQueue a("a", time), b("b", time);
    std::string order;
    const auto start = time.now();
    auto second = a.after(20ms, [&] { order += '2'; });
    auto first = b.after(10ms, [&] {
        EXPECT_EQ(time.now() - start, 10ms);
        EXPECT_TRUE(b.isCurrent());
        order += '1';
        a.post([&] { order += 'p'; });
    });
    auto never = a.after(5ms, [&] { order += 'x'; });
    never.cancel();
    EXPECT_TRUE(first.isPending());
    time.advance(19ms);
    EXPECT_EQ(order, "1p");
    EXPECT_FALSE(first.isPending());
    time.advance(1ms);
    EXPECT_EQ(order, "1p2");
}

TEST(VirtualTime, theWallClockFollowsAndMayBeSet) {
    VirtualTime time;
    time.setWallTime(WallTime(1000s));
    time.advance(5s);
    EXPECT_EQ(time.wallTime(), WallTime(1005s));
}

}  // namespace
}  // namespace orvel
