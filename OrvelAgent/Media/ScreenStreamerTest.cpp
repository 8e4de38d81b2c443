#include "OrvelAgent/Media/ScreenStreamer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "OrvelAgent/Platform/Fake/FakeCompressionSession.h"
#include "OrvelAgent/Platform/Fake/FakeScreenSource.h"
#include "OrvelKit/Wire/Media.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

using Display = ScreenStreamer::Display;
using StartFailure = ScreenStreamer::StartFailure;

class ScreenStreamerTest : public testing::Test {
protected:
    ScreenStreamerTest() {
        streamer->onFormat = [this](const FrameBuffer&) { stream += 'F'; };
        streamer->onFrame = [this](const FrameBuffer& frame, bool isKeyframe) {
            stream += isKeyframe ? 'K' : 'p';
            lastTime = VideoFrame::decode(frame.payload()).ptsMicros;
        };
        streamer->onStop = [this](ScreenStreamer::CaptureID capture,
                                  const std::optional<CaptureError>& error) {
            EXPECT_TRUE(queue.isCurrent());
            log.push_back("ended " + std::to_string(capture) +
                          (error ? " " + error->description : ""));
        };
    }

    // Starts and stops report into `log` as "<name> started" and so on.
    ScreenStreamer::CaptureID start(const std::string& name,
                                    std::optional<std::uint32_t> display = {},
                                    int maxPixels = 1920) {
        return streamer->start(display, maxPixels, [this, name](const auto& result) {
            EXPECT_TRUE(queue.isCurrent());
            if (auto* failure = std::get_if<StartFailure>(&result)) {
                lastFailure = *failure;
                log.push_back(name + " failed: " + failure->description);
            } else {
                lastDisplay = std::get<Display>(result);
                log.push_back(name + " started");
            }
        });
    }
    void stop(const std::string& name, ScreenStreamer::CaptureID capture) {
        streamer->stop(capture, [this, name] { log.push_back(name + " stopped"); });
    }
    Display started(std::optional<std::uint32_t> display = {}, int maxPixels = 1920) {
        start("capture", display, maxPixels);
        time.runPending();
        EXPECT_EQ(log.back(), "capture started");
        return lastDisplay;
    }
    void show(std::uint8_t level = 128) {
        screen->show(level);
        time.runPending();
    }

    VirtualTime time;
    SerialQueue queue{"orvel.capture", time}, audioQueue{"orvel.audio", time};
    std::shared_ptr<FakeScreen> screen = std::make_shared<FakeScreen>(queue, audioQueue);
    std::shared_ptr<FakeCompression> compression = std::make_shared<FakeCompression>();
    std::shared_ptr<ScreenStreamer> streamer = std::make_shared<ScreenStreamer>(
        queue, audioQueue, std::make_unique<FakeScreenSource>(queue, screen),
        compression->factory());
    std::string stream;  // F: format, K: keyframe, p: other frame
    std::uint64_t lastTime = 0;
    std::vector<std::string> log;
    Display lastDisplay;
    StartFailure lastFailure{};
};

struct SizeRow {
    const char* name;
    double width, height;  // points
    std::optional<int> pixelWidth;
    int maxPixels;
    int videoWidth, videoHeight;
    const char* bitrate;
};
const SizeRow sizeRows[] = {
    {"2x, scaled down", 1512, 982, 3024, 1920, 1920, 1246, "7176960"},
    {"1x, small: the least bitrate", 1280, 720, 1280, 1920, 1280, 720, "4000000"},
    {"mode unknown: 2x", 640, 360, std::nullopt, 1920, 1280, 720, "4000000"},
    {"exactly the limit", 1920, 1080, 1920, 1920, 1920, 1080, "6220800"},
    {"large: the most bitrate", 3840, 2160, 3840, 3840, 3840, 2160, "14000000"},
    {"upright: the longer edge counts", 1080, 1920, 1080, 960, 540, 960, "4000000"},
    {"odd lengths lose a pixel", 1367, 767, 1367, 1920, 1366, 766, "4000000"},
    {"a sliver keeps two rows", 4000, 1, 4000, 960, 960, 2, "4000000"},
    {"no size at all", 0, 0, 0, 1920, 2, 2, "4000000"},
};

TEST_F(ScreenStreamerTest, pictureSizeAndBitrateFollowFromDisplayAndBudget) {
    for (const auto& row : sizeRows) {
        SCOPED_TRACE(row.name);
        screen->displays = {{5, "", row.width, row.height, row.pixelWidth, true}};
        const auto display = started(std::nullopt, row.maxPixels);
        EXPECT_EQ(display.videoWidth, row.videoWidth);
        EXPECT_EQ(display.videoHeight, row.videoHeight);
        EXPECT_EQ(display.pointsWidth, row.width);
        EXPECT_EQ(display.pointsHeight, row.height);
        EXPECT_EQ(screen->running->width, row.videoWidth);
        EXPECT_EQ(screen->running->height, row.videoHeight);
        EXPECT_EQ(compression->properties["averageBitRate"], row.bitrate);
    }
}

TEST_F(ScreenStreamerTest, theCaptureIsConfiguredForAtMostSixtyFramesWithCursorAndStereo) {
    started();
    EXPECT_EQ(screen->running->framesPerSecond, 60);
    EXPECT_TRUE(screen->running->showsCursor);
    EXPECT_EQ(screen->running->queueDepth, 5);
    EXPECT_TRUE(screen->running->capturesAudio);
    EXPECT_EQ(screen->running->audioSampleRate, 48'000);
    EXPECT_EQ(screen->running->audioChannels, 2);
    EXPECT_TRUE(screen->running->excludesOwnAudio);
}

struct ChoiceRow {
    const char* name;
    std::vector<ScreenSource::DisplayDescription> displays;
    std::optional<std::uint32_t> asked;
    std::uint32_t want;
};
const ScreenSource::DisplayDescription one{1, "", 100, 100, 100, false},
    two{2, "", 100, 100, 100, true}, three{3, "", 100, 100, 100, false};
const ChoiceRow choiceRows[] = {
    {"the one asked for", {one, two, three}, 3, 3},
    {"none asked for: the main one", {one, two, three}, std::nullopt, 2},
    {"not there: the main one", {one, two, three}, 9, 2},
    {"not there, no main one: the first", {three, one}, 9, 3},
};

TEST_F(ScreenStreamerTest, choosesTheDisplayAskedForElseTheMainElseTheFirst) {
    for (const auto& row : choiceRows) {
        SCOPED_TRACE(row.name);
        screen->displays = row.displays;
        EXPECT_EQ(started(row.asked).id, row.want);
        EXPECT_EQ(screen->running->displayID, row.want);
    }
}

TEST_F(ScreenStreamerTest, allDisplaysAreListedAndTheNamelessNumbered) {
    screen->displays = {{1, "Çalışma", 1280, 720, 1280, true},
                        {4'000'000'000, "", 800, 600, 1600, false}};
    EXPECT_EQ(started().all,
              (std::vector<DisplayInfo>{{1, "Çalışma", 1280, 720},
                                        {4'000'000'000, "Ekran 4000000000", 800, 600}}));
}

struct FailureRow {
    const char* name;
    std::function<void(FakeScreen&, FakeCompression&)> prepare;
    StartFailure::Reason reason;
    const char* description;
};
const FailureRow failureRows[] = {
    {"no display", [](auto& screen, auto&) { screen.displays.clear(); },
     StartFailure::Reason::noDisplay, "Paylaşılacak ekran bulunamadı."},
    {"displays not readable", [](auto& screen, auto&) { screen.listError = {{"no access"}}; },
     StartFailure::Reason::capture, "no access"},
    {"no encoder", [](auto&, auto& compression) { compression.createStatus = -12'908; },
     StartFailure::Reason::encoder, "video encoder could not be created, status -12908"},
    {"capture refused", [](auto& screen, auto&) { screen.startError = {{"in use"}}; },
     StartFailure::Reason::capture, "in use"},
};

TEST_F(ScreenStreamerTest, aFailedStartSaysWhyAndLeavesNothingRunning) {
    for (const auto& row : failureRows) {
        SCOPED_TRACE(row.name);
        screen->displays = {one};
        screen->listError = screen->startError = std::nullopt;
        compression->createStatus = 0;
        started();
        row.prepare(*screen, *compression);
        start("failing");
        time.runPending();
        EXPECT_EQ(lastFailure.reason, row.reason);
        EXPECT_EQ(lastFailure.description, row.description);
        EXPECT_FALSE(screen->running);
        EXPECT_EQ(compression->alive, 0);
    }
}

TEST_F(ScreenStreamerTest, onlyCompletePicturesCount) {
    started();
    using Status = ScreenSource::SampleStatus;
    for (auto status :
         {Status::idle, Status::blank, Status::suspended, Status::started, Status::stopped}) {
        screen->deliver({status, FakePixelBuffer::grey(1280, 720, 1), time.now()});
    }
    screen->deliver({Status::complete, nullptr, time.now()});
    time.advance(1s);
    EXPECT_EQ(stream, "");
    show();
    EXPECT_EQ(stream, "FK");
}

TEST_F(ScreenStreamerTest, aPictureWithoutATimeCrossesWithTimeZero) {
    started();
    screen->deliver(
        {ScreenSource::SampleStatus::complete, FakePixelBuffer::grey(1280, 720, 1), std::nullopt});
    time.runPending();
    EXPECT_EQ(stream, "FK");
    EXPECT_EQ(lastTime, 0u);
}

TEST_F(ScreenStreamerTest, aStillScreenGivesOneSharpKeyframeAndFeedsTheSink) {
    started();
    std::vector<Duration> fed;
    const auto begin = time.now();
    streamer->setSink([&](const auto& image) {
        EXPECT_EQ(image->sequence, 1u);
        fed.push_back(time.now() - begin);
    });
    show();
    EXPECT_EQ(stream, "FK");
    time.advance(1s);
    EXPECT_EQ(stream, "FKFK");
    EXPECT_EQ(compression->properties["quality"], "0.6");
    EXPECT_EQ(compression->encoded.back().time - begin, 500ms);
    EXPECT_THAT(fed, ElementsAre(0ms, 500ms, 750ms, 1000ms));
}

TEST_F(ScreenStreamerTest, eachStillPeriodGetsItsOwnSharpFrame) {
    started();
    show(1);
    time.advance(1s);
    show(2);
    time.advance(300ms);  // 0.4 s have not passed at the check
    show(3);
    EXPECT_EQ(stream, "FKFKpp");
    time.advance(10s);
    EXPECT_EQ(stream, "FKFKppFK");
}

TEST_F(ScreenStreamerTest, stillForExactlyFourTenthsIsNotYetStill) {
    started();
    time.advance(100ms);
    show();  // the check at 500 ms finds it 400 ms old
    time.advance(400ms);
    EXPECT_EQ(stream, "FK");
    time.advance(250ms);
    EXPECT_EQ(stream, "FKFK");
}

TEST_F(ScreenStreamerTest, rawOutputIsNeitherEncodedNorSharpened) {
    started();
    int fed = 0;
    streamer->setEncodes(false);
    streamer->setSink([&](const auto&) { ++fed; });
    show();
    streamer->requestKeyframe();
    time.advance(1s);
    EXPECT_EQ(stream, "");
    EXPECT_EQ(fed, 4);
    streamer->setEncodes(true);
    streamer->setSink(nullptr);
    show();
    EXPECT_EQ(stream, "FK");
    EXPECT_EQ(fed, 4);
}

TEST_F(ScreenStreamerTest, aKeyframeRequestBeforeAnyPictureOnlyMarksTheNext) {
    started();
    show(1);
    started();  // a restart forgets the last picture
    stream.clear();
    streamer->requestKeyframe();
    time.runPending();
    EXPECT_EQ(stream, "");
    show(2);
    show(3);
    EXPECT_EQ(stream, "FKp");
}

TEST_F(ScreenStreamerTest, aKeyframeRequestEncodesTheLastPictureAgainWithItsOwnTime) {
    started();
    show(1);
    const auto taken = lastTime;
    show(2);
    time.advance(100ms);
    streamer->requestKeyframe();
    time.runPending();
    EXPECT_EQ(stream, "FKpFK");
    EXPECT_EQ(lastTime, taken);
    EXPECT_EQ(compression->encoded.back().image->sequence, 2u);
}

TEST_F(ScreenStreamerTest, aFloodOfKeyframeRequestsIsOneForEachTurnOfTheQueue) {
    started();
    show();
    for (int turn = 0; turn < 2; ++turn) {
        for (int i = 0; i < 1000; ++i)
            streamer->requestKeyframe();
        time.runPending();
    }
    EXPECT_EQ(stream, "FKFKFK");
}

TEST_F(ScreenStreamerTest, aRestartEndsTheOldCaptureFirstAndBeginsWithAKeyframe) {
    screen->displays = {one, two};
    started(1);
    show();
    started(2);
    show();
    EXPECT_EQ(stream, "FKFK");
    EXPECT_THAT(screen->calls,
                ElementsAre("list", "start 1 100x100", "stop", "list", "start 2 100x100"));
    EXPECT_EQ(compression->alive, 1);
    EXPECT_EQ(screen->misuses, 0);
}

TEST_F(ScreenStreamerTest, aStopEndsEverything) {
    const auto capture = start("capture");
    time.runPending();
    show();
    stop("capture", capture);
    time.runPending();
    EXPECT_FALSE(screen->running);
    EXPECT_EQ(compression->alive, 0);
    stream.clear();
    streamer->requestKeyframe();
    time.advance(10s);
    EXPECT_EQ(stream, "");
    EXPECT_THAT(log, ElementsAre("capture started", "capture stopped"));
}

// The order in which links come and go: what each start and stop hears, and what the source does.
TEST_F(ScreenStreamerTest, theStopOfADisplacedLinkLeavesItsSuccessorAlone) {
    const auto first = start("first");
    time.runPending();
    start("second");
    stop("first", first);
    time.runPending();
    EXPECT_THAT(log, ElementsAre("first started", "first stopped", "second started"));
    EXPECT_TRUE(screen->running);
    show();
    EXPECT_EQ(stream, "FK");
    EXPECT_THAT(screen->calls,
                ElementsAre("list", "start 1 1280x720", "stop", "list", "start 1 1280x720"));
}

TEST_F(ScreenStreamerTest, onlyTheNewestOfManyStartsCaptures) {
    start("first");
    start("second");
    start("third", {}, 640);
    time.runPending();
    EXPECT_THAT(
        log, ElementsAre("second failed: superseded", "first failed: superseded", "third started"));
    EXPECT_EQ(lastFailure.reason, StartFailure::Reason::superseded);
    EXPECT_THAT(screen->calls, ElementsAre("list", "list", "start 1 640x360"));
    EXPECT_EQ(screen->misuses, 0);
}

TEST_F(ScreenStreamerTest, aStartSupersededWhileTheSourceStartsIsEndedBeforeTheNext) {
    screen->hold("start");
    start("first");
    time.runPending();
    const auto second = start("second");
    time.runPending();
    EXPECT_THAT(log, IsEmpty());
    screen->proceed("start");
    time.runPending();
    EXPECT_THAT(log, ElementsAre("first failed: superseded"));
    screen->proceed("start");
    time.runPending();
    EXPECT_EQ(log.back(), "second started");
    EXPECT_EQ(screen->misuses, 0);
    stop("second", second);
    time.runPending();
    EXPECT_FALSE(screen->running);
}

TEST_F(ScreenStreamerTest, aStopWhileTheSourceStartsWaitsForItAndEndsIt) {
    screen->hold("start");
    const auto capture = start("capture");
    time.runPending();
    stop("capture", capture);
    time.runPending();
    EXPECT_THAT(log, IsEmpty());
    screen->proceed("start");
    time.runPending();
    EXPECT_THAT(log, ElementsAre("capture failed: superseded", "capture stopped"));
    EXPECT_FALSE(screen->running);
    EXPECT_EQ(compression->alive, 0);
}

TEST_F(ScreenStreamerTest, aStartDuringAStopWaitsForItsEnd) {
    const auto first = start("first");
    time.runPending();
    screen->hold("stop");
    stop("first", first);
    start("second");
    time.runPending();
    EXPECT_THAT(log, ElementsAre("first started"));
    screen->proceed("stop");
    time.runPending();
    EXPECT_THAT(log, ElementsAre("first started", "first stopped", "second started"));
}

TEST_F(ScreenStreamerTest, noPictureOfADisplacedCaptureComesThroughAnyMore) {
    started();
    screen->hold("stop");
    start("second");
    time.runPending();
    show();
    time.advance(1s);
    EXPECT_EQ(stream, "");
}

TEST_F(ScreenStreamerTest, aCaptureThatEndsByItselfIsReportedOnce) {
    const auto capture = start("capture");
    time.runPending();
    show();
    screen->end(CaptureError{"display unplugged"});
    time.runPending();
    EXPECT_THAT(log, ElementsAre("capture started", "ended 1 display unplugged"));
    EXPECT_EQ(compression->alive, 0);
    stop("capture", capture);
    time.advance(1s);
    EXPECT_THAT(log,
                ElementsAre("capture started", "ended 1 display unplugged", "capture stopped"));
    EXPECT_EQ(stream, "FK");
    started();
}

TEST_F(ScreenStreamerTest, theEndOfADisplacedCaptureIsNoNews) {
    start("first");
    time.runPending();
    screen->end(std::nullopt);
    start("second");
    time.runPending();
    EXPECT_THAT(log, ElementsAre("first started", "ended 1", "second started"));

    start("third");
    screen->end(std::nullopt);  // the second's, when the third is already asked for
    time.runPending();
    EXPECT_EQ(log.back(), "third started");
    EXPECT_TRUE(screen->running);
}

TEST_F(ScreenStreamerTest, itsEndIsTheEndOfItsCaptureAndOfAllCalls) {
    started();
    show();
    std::weak_ptr<ScreenStreamer> watch = streamer;
    start("never");
    streamer.reset();
    EXPECT_TRUE(watch.expired());
    time.advance(1s);
    EXPECT_FALSE(screen->running);
    EXPECT_EQ(compression->alive, 0);
    EXPECT_THAT(log, ElementsAre("capture started"));
}

TEST_F(ScreenStreamerTest, soundIsNumberedOnOverCapturesAndPausesWhenSwitchedOff) {
    std::vector<std::uint32_t> numbers;
    streamer->onAudio = [&](const AudioPacket& packet) {
        EXPECT_TRUE(audioQueue.isCurrent());
        numbers.push_back(packet.sequence);
    };
    const auto hear = [&](std::size_t frames) {
        screen->sound(frames);
        time.runPending();
    };
    started();
    hear(1'900);
    EXPECT_THAT(numbers, ElementsAre(1));
    streamer->setAudio(false);
    hear(5'000);
    EXPECT_FALSE(screen->running->capturesAudio);
    started();
    EXPECT_FALSE(screen->running->capturesAudio);
    streamer->setAudio(true);
    hear(959);  // the 940 frames from before are forgotten
    EXPECT_THAT(numbers, ElementsAre(1));
    started();
    hear(1);
    EXPECT_THAT(numbers, ElementsAre(1, 2));
}

// In real time, for the thread sanitizer: links come and go on two threads while a third asks for
// keyframes.
TEST(ScreenStreamerThreads, callsFromSeveralThreadsEndWithTheNewestCapture) {
    SerialQueue queue("orvel.capture");
    SerialQueue audioQueue("orvel.audio");
    const auto screen = std::make_shared<FakeScreen>(queue, audioQueue);
    const auto compression = std::make_shared<FakeCompression>();
    auto streamer = std::make_shared<ScreenStreamer>(
        queue, audioQueue, std::make_unique<FakeScreenSource>(queue, screen),
        compression->factory());
    std::atomic<int> answers{0}, frames{0};
    streamer->onFrame = [&](const FrameBuffer&, bool) { ++frames; };

    constexpr int rounds = 100;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                const auto capture = streamer->start({}, 640, [&](const auto&) { ++answers; });
                screen->show(100);
                streamer->stop(capture, [&] { ++answers; });
            }
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; round < rounds; ++round)
            streamer->requestKeyframe();
    });
    for (auto& thread : threads)
        thread.join();

    std::promise<bool> last;
    streamer->start({}, 640, [&](const auto& result) {
        last.set_value(std::holds_alternative<Display>(result));
    });
    auto result = last.get_future();
    ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(result.get());
    EXPECT_EQ(answers, 2 * 2 * rounds);

    std::promise<int> seen;
    std::once_flag once;
    streamer->setSink(
        [&](const auto& image) { std::call_once(once, [&] { seen.set_value(image->width); }); });
    screen->show(200);
    auto width = seen.get_future();
    ASSERT_EQ(width.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(width.get(), 640);
    EXPECT_GT(frames, 0);
    streamer->setSink(nullptr);
    std::promise<void> quiet;
    queue.post([&] { quiet.set_value(); });
    ASSERT_EQ(quiet.get_future().wait_for(10s), std::future_status::ready);
    EXPECT_EQ(screen->misuses, 0);
}

}  // namespace
}  // namespace orvel
