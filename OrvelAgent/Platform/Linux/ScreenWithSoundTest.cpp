#include "OrvelAgent/Platform/Linux/ScreenWithSound.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>

#include "OrvelAgent/Platform/Fake/FakeScreenSource.h"
#include "OrvelAgent/Platform/Linux/PulseMonitor.h"
#include "Tests/Support/SoundServer.h"

namespace orvel {
namespace {

// A source whose picture is a fake and whose sound is real.
class ScreenWithSoundTest : public testing::Test {
protected:
    void SetUp() override {
        if (!SoundServer::isInstalled()) GTEST_SKIP() << "the sound server for tests is missing";
        server.emplace();
        server->addOutput("first");
        server->playTone("first", 1000);
        source = std::make_unique<ScreenWithSound>(
            queue, audioQueue, std::make_unique<FakeScreenSource>(queue, screen),
            std::make_shared<PulseMonitor>(audioQueue, server->address()));
    }
    ~ScreenWithSoundTest() override {
        onQueue([&](auto done) {
            source.reset();
            done();
        });
    }

    template <class Body>
    void onQueue(Body body) {
        std::promise<void> promise;
        queue.post([&] { body([&promise] { promise.set_value(); }); });
        promise.get_future().wait();
    }
    void start(bool capturesAudio = true) {
        onQueue([&](auto done) {
            ScreenSource::Configuration configuration;
            configuration.capturesAudio = capturesAudio;
            ScreenSource::Handlers handlers;
            handlers.onSample = [this](const auto&) { ++pictures; };
            handlers.onAudio = [this](const auto&) {
                audioQueue.assertCurrent();
                EXPECT_TRUE(mayHear);
                ++sounds;
            };
            handlers.onStop = [this](const auto&) { ++ends; };
            mayHear = true;
            source->start(configuration, handlers, [done](const auto&) { done(); });
        });
    }
    void stop() {
        onQueue([&](auto done) { source->stop(done); });
        mayHear = false;
    }
    void setCapturesAudio(bool captures) {
        onQueue([&](auto done) {
            source->setCapturesAudio(captures);
            done();
        });
    }
    bool hears() {
        const int before = sounds;
        return eventually([&] { return sounds > before; });
    }
    bool comesToBeLeftAlone() {
        return eventually([&] { return server->listeners() == 0; });
    }

    std::optional<SoundServer> server;
    SerialQueue queue{"orvel.capture"}, audioQueue{"orvel.audio"};
    std::shared_ptr<FakeScreen> screen = std::make_shared<FakeScreen>(queue, audioQueue);
    std::atomic<int> pictures{0}, sounds{0}, ends{0};
    std::atomic<bool> mayHear{false};
    std::unique_ptr<ScreenSource> source;
};

TEST_F(ScreenWithSoundTest, soundIsCapturedWhileACaptureRunsThatWantsIt) {
    start();
    EXPECT_TRUE(hears());
    setCapturesAudio(false);
    EXPECT_TRUE(comesToBeLeftAlone());
    screen->show(1);
    EXPECT_TRUE(eventually([&] { return pictures == 1; }));
    setCapturesAudio(true);
    EXPECT_TRUE(hears());
    stop();
    EXPECT_TRUE(comesToBeLeftAlone());

    start(false);
    setCapturesAudio(true);
    EXPECT_TRUE(hears());
    screen->end(std::nullopt);
    EXPECT_TRUE(comesToBeLeftAlone());
    EXPECT_EQ(ends, 1);
    setCapturesAudio(true);
    stop();

    screen->startError = CaptureError{"no"};
    start();
    onQueue([](auto done) { done(); });
    EXPECT_EQ(server->listeners(), 0);
}

TEST_F(ScreenWithSoundTest, noSoundComesOnceAStopHasCompleted) {
    for (int round = 0; round < 20; ++round) {
        start();
        EXPECT_TRUE(round % 4 == 0 || hears());
        stop();
    }
    start();
    EXPECT_TRUE(hears());
    onQueue([&](auto done) {
        source.reset();
        done();
    });
    EXPECT_TRUE(comesToBeLeftAlone()) << "its end ends the capture";
}

TEST_F(ScreenWithSoundTest, pictureGoesOnWithoutASoundServer) {
    start();
    EXPECT_TRUE(hears());
    server->kill();
    screen->show(1);
    EXPECT_TRUE(eventually([&] { return pictures == 1; }));
    stop();
    start();
    screen->show(2);
    EXPECT_TRUE(eventually([&] { return pictures == 2; }));
    EXPECT_EQ(ends, 0);
    stop();
}

}  // namespace
}  // namespace orvel
