#pragma once

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// What every queue in real time has to do, for each event loop that one is built on. A `Kind` is
// default-made with a queue, `Kind::queue()`, and waits for its tasks: `waitFor(future)` is false
// when nothing came in a generous time.
template <class Kind>
class RealTimeQueue : public testing::Test {
protected:
    template <class Value>
    Value result(std::promise<Value>& promise) {
        auto future = promise.get_future();
        EXPECT_TRUE(kind->waitFor(future));
        return future.get();
    }
    SerialQueue& queue() { return kind->queue(); }
    void endQueue() { kind.reset(); }

    std::unique_ptr<Kind> kind = std::make_unique<Kind>();
};
TYPED_TEST_SUITE_P(RealTimeQueue);

TYPED_TEST_P(RealTimeQueue, runsWhatManyThreadsPostOneAtATimeAndInEachOnesOrder) {
    constexpr int posters = 4, tasks = 500;
    std::vector<int> last(posters, -1);  // touched on the queue only; TSan would tell
    std::promise<bool> done;
    int ran = 0;
    std::vector<std::thread> threads;
    for (int p = 0; p < posters; ++p) {
        threads.emplace_back([&, p] {
            EXPECT_FALSE(this->queue().isCurrent());
            for (int i = 0; i < tasks; ++i) {
                this->queue().post([&, p, i] {
                    EXPECT_TRUE(this->queue().isCurrent());
                    EXPECT_EQ(last[p], i - 1);
                    last[p] = i;
                    if (++ran == posters * tasks) done.set_value(true);
                });
            }
        });
    }
    EXPECT_TRUE(this->result(done));
    for (auto& thread : threads)
        thread.join();
}

TYPED_TEST_P(RealTimeQueue, whatATaskPostsComesAfterWhatWasThere) {
    std::promise<std::string> order;
    std::string ran;
    this->queue().post([&] {
        this->queue().post([&] { ran += 'b'; });
        ran += 'a';
        this->queue().post([&] { order.set_value(ran += 'c'); });
    });
    EXPECT_EQ(this->result(order), "abc");
}

TYPED_TEST_P(RealTimeQueue, timersComeInTheOrderOfTheirTimesAndNeverEarly) {
    std::promise<std::string> order;
    std::string fired;
    const auto start = this->queue().now();
    // The later one first: the earlier one has to get in front, from another thread too.
    auto late = this->queue().after(std::chrono::milliseconds(40), [&] {
        EXPECT_GE(this->queue().now() - start, std::chrono::milliseconds(40));
        order.set_value(fired += 'b');
    });
    Timer early;
    std::thread([&] {
        early = this->queue().after(std::chrono::microseconds(4500), [&] {
            EXPECT_GE(this->queue().now() - start, std::chrono::microseconds(4500));
            EXPECT_TRUE(this->queue().isCurrent());
            fired += 'a';
        });
    }).join();
    EXPECT_EQ(this->result(order), "ab");
}

TYPED_TEST_P(RealTimeQueue, aTimerCancelledOnItsQueueNeverFires) {
    std::promise<bool> outcome;
    bool fired = false;
    Timer timer, later;
    this->queue().post([&] {
        timer = this->queue().after(Duration::zero(), [&] { fired = true; });
        timer.cancel();
        later =
            this->queue().after(std::chrono::milliseconds(1), [&] { outcome.set_value(fired); });
    });
    EXPECT_FALSE(this->result(outcome));
}

TYPED_TEST_P(RealTimeQueue, destructionDestroysWaitingTasksUnrunWhateverTheyThenDo) {
    struct PostsAtItsEnd {
        explicit PostsAtItsEnd(SerialQueue& postedTo) : queue(postedTo) {}
        PostsAtItsEnd(const PostsAtItsEnd&) = delete;
        ~PostsAtItsEnd() {
            queue.post([] { FAIL(); });
        }
        SerialQueue& queue;
    };
    struct Owner {
        Timer timer;
    };
    auto held = std::make_shared<PostsAtItsEnd>(this->queue());
    const std::weak_ptr<PostsAtItsEnd> watch = held;
    Timer timer =
        this->queue().after(std::chrono::hours(1), [held = std::move(held)] { FAIL() << held; });
    // A task may be what keeps its own timer alive.
    auto owner = std::make_shared<Owner>();
    owner->timer = this->queue().after(std::chrono::hours(1), [owner] { FAIL(); });
    const std::weak_ptr<Owner> ownerWatch = std::exchange(owner, nullptr);
    this->endQueue();
    timer.cancel();  // the handle may outlive the queue
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(ownerWatch.expired());
}

REGISTER_TYPED_TEST_SUITE_P(RealTimeQueue, runsWhatManyThreadsPostOneAtATimeAndInEachOnesOrder,
                            whatATaskPostsComesAfterWhatWasThere,
                            timersComeInTheOrderOfTheirTimesAndNeverEarly,
                            aTimerCancelledOnItsQueueNeverFires,
                            destructionDestroysWaitingTasksUnrunWhateverTheyThenDo);

}  // namespace orvel
