#include "OrvelAgent/App/QtMainQueue.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include "OrvelKit/Base/SerialQueueTests.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

// Each test has an application object of its own.
struct QtLoop {
    SerialQueue& queue() { return main; }
    template <class Future>
    bool waitFor(Future& future) {
        // Qt's loop sleeps until something comes, at most until the limit.
        QTimer limit;
        limit.setSingleShot(true);
        limit.start(20s);
        const auto isReady = [&] { return future.wait_for(0s) == std::future_status::ready; };
        while (!isReady() && limit.isActive())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return isReady();
    }

    int count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{count, arguments};
    QtMainQueue main;
};
INSTANTIATE_TYPED_TEST_SUITE_P(Qt, RealTimeQueue, QtLoop);

TEST(QtMainQueue, whatQtCallsIsOnTheQueue) {
    QtLoop loop;
    bool called = false;
    QTimer::singleShot(0, [&] {
        loop.main.assertCurrent();
        called = true;
        loop.main.stop();
    });
    loop.main.run();
    EXPECT_TRUE(called);
}

TEST(QtMainQueue, stopEndsNestedLoopsAndLeavesTheRestUnrun) {
    QtLoop loop;
    std::string ran;
    loop.main.post([&] {
        ran += 'a';
        QEventLoop menu;
        loop.main.post([&] {
            ran += 'b';
            std::thread([&] { loop.main.stop(); }).join();
            loop.main.post([&] { ran += 'x'; });
        });
        menu.exec();
        ran += 'c';
    });
    loop.main.run();
    EXPECT_EQ(ran, "abc");
}

TEST(QtMainQueue, stoppedBeforeItRunsItDoesNotRun) {
    QtLoop loop;
    loop.main.post([] { FAIL(); });
    loop.main.stop();
    loop.main.run();
}

// Nothing runs while there is nothing to do: one wake-up for each timer, none for cancelled ones.
TEST(QtMainQueue, sleepsBetweenTimers) {
    QtLoop loop;
    int wakeUps = 0;
    QObject::connect(QCoreApplication::eventDispatcher(), &QAbstractEventDispatcher::awake,
                     [&] { ++wakeUps; });
    std::vector<Timer> cancelled;
    for (int i = 1; i < 100; ++i)
        cancelled.push_back(loop.main.after(i * 1ms, [] { FAIL(); }));
    cancelled.clear();
    const auto end = loop.main.after(150ms, [&] { loop.main.stop(); });
    loop.main.run();
    EXPECT_LT(wakeUps, 20);
}

}  // namespace
}  // namespace orvel
