#include "OrvelKit/Base/SerialQueue.h"

#include <gtest/gtest.h>

#include <thread>

#include "OrvelKit/Base/SerialQueueTests.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

struct OwnThread {
    SerialQueue& queue() { return own; }
    template <class Future>
    bool waitFor(Future& future) {
        return future.wait_for(20s) == std::future_status::ready;
    }
    SerialQueue own{"orvel.test"};
};
INSTANTIATE_TYPED_TEST_SUITE_P(OwnThread, RealTimeQueue, OwnThread);

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

TEST(VirtualTime, aTaskThatKeepsItsOwnTimerAliveEndsWithTheQueue) {
    struct Owner {
        Timer timer;
    };
    std::weak_ptr<Owner> watch;
    VirtualTime time;
    {
        SerialQueue queue("orvel.test", time);
        auto owner = std::make_shared<Owner>();
        owner->timer = queue.after(1h, [owner] { FAIL(); });
        watch = owner;
    }
    EXPECT_TRUE(watch.expired());
}

TEST(VirtualTime, theWallClockFollowsAndMayBeSet) {
    VirtualTime time;
    time.setWallTime(WallTime(1000s));
    time.advance(5s);
    EXPECT_EQ(time.wallTime(), WallTime(1005s));
}

}  // namespace
}  // namespace orvel
