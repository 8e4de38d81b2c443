#include "OrvelAgent/Platform/Linux/X11ScreenSource.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <future>
#include <mutex>
#include <random>

#include "OrvelAgent/Platform/Linux/PictureForTests.h"
#include "Tests/Support/XDesk.h"
#include "Tests/Support/XServer.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Status = ScreenSource::SampleStatus;
using Picture = std::shared_ptr<const PixelBuffer>;

constexpr auto patience = 20s;

// A source on its queue, and what it delivered.
class Watching {
public:
    explicit Watching(const std::string& display)
        : source(std::make_unique<X11ScreenSource>(queue, display)) {}
    ~Watching() {
        onQueue([&](auto done) {
            source.reset();
            done();
        });
    }

    ScreenSource::DisplayList list() {
        ScreenSource::DisplayList result;
        onQueue([&](auto done) {
            source->listDisplays([&result, done](ScreenSource::DisplayList list) {
                result = std::move(list);
                done();
            });
        });
        return result;
    }

    // Of the display of that name, or the main one, in its own size unless told.
    std::optional<CaptureError> start(const std::string& name = {},
                                      ScreenSource::Configuration wanted = {}) {
        for (const auto& display : list().displays) {
            if (name.empty() ? !display.isMain : display.name != name) continue;
            wanted.displayID = display.id;
            if (wanted.width == 0) {
                wanted.width = static_cast<int>(display.width) / 2 * 2;
                wanted.height = static_cast<int>(display.height) / 2 * 2;
            }
        }
        return start(wanted);
    }
    std::optional<CaptureError> start(const ScreenSource::Configuration& configuration) {
        std::optional<CaptureError> result;
        onQueue([&](auto done) {
            ScreenSource::Handlers handlers;
            handlers.onSample = [this](const auto& sample) { receive(sample); };
            handlers.onStop = [this](const auto& error) {
                const std::lock_guard hold(mutex);
                stops.push_back(error ? error->description : "");
            };
            source->start(configuration, handlers, [&result, done](auto error) {
                result = error;
                done();
            });
        });
        return result;
    }
    void stop() {
        onQueue([&](auto done) { source->stop(done); });
    }
    // On the queue.
    void stop(std::function<void()> completion) { source->stop(std::move(completion)); }

    Picture picture() {
        const std::lock_guard hold(mutex);
        return last;
    }
    std::string history() {
        const std::lock_guard hold(mutex);
        return letters;
    }
    std::vector<std::string> stopped() {
        const std::lock_guard hold(mutex);
        return stops;
    }
    std::vector<MonotonicTime> times() {
        const std::lock_guard hold(mutex);
        return taken;
    }
    // From now on the pictures are kept; the newest `count` of them.
    void keep(std::size_t count) {
        const std::lock_guard hold(mutex);
        keeps = count;
        while (kept.size() > keeps)
            kept.erase(kept.begin());
    }

    // Until the newest picture is that one.
    testing::AssertionResult comesToShow(const Canvas& canvas) {
        testing::AssertionResult result = testing::AssertionFailure() << "there is no picture";
        eventually(
            [&] {
                if (const auto newest = picture()) result = shows(*newest, canvas);
                return static_cast<bool>(result);
            },
            patience);
        return result;
    }
    // Until nothing moves.
    bool comesToRest() {
        return eventually([&] { return !history().empty() && history().back() == 'i'; }, patience);
    }

    template <class Body>
    void onQueue(Body body) {
        std::promise<void> promise;
        queue.post([&] { body([&promise] { promise.set_value(); }); });
        if (promise.get_future().wait_for(patience) != std::future_status::ready) {
            ADD_FAILURE() << "no answer";
            std::abort();
        }
    }

    SerialQueue queue{"orvel.capture"};
    std::function<void()> whenReceived;  // on the queue

private:
    void receive(const ScreenSource::Sample& sample) {
        EXPECT_TRUE(queue.isCurrent());
        {
            const std::lock_guard hold(mutex);
            letters += sample.status == Status::complete ? 'c' : 'i';
            if (sample.image) {
                EXPECT_EQ(sample.image->sequence, last ? last->sequence + 1 : 1);
                last = sample.image;
                kept.push_back(last);
                if (kept.size() > keeps) kept.erase(kept.begin());
                taken.push_back(sample.time.value());
            }
        }
        if (whenReceived) whenReceived();
    }

    std::unique_ptr<X11ScreenSource> source;
    std::mutex mutex;  // guards the following
    Picture last;
    std::vector<Picture> kept;
    std::size_t keeps = 0;
    std::string letters;  // c: complete, i: idle
    std::vector<MonotonicTime> taken;
    std::vector<std::string> stops;
};

bool isSame(const PixelBuffer& a, const PixelBuffer& b) {
    const auto width = static_cast<std::size_t>(a.width);
    for (int y = 0; y < a.height; ++y) {
        if (std::memcmp(a.luma + y * a.lumaStride, b.luma + y * b.lumaStride, width) != 0)
            return false;
    }
    for (int y = 0; y < a.height / 2; ++y) {
        if (std::memcmp(a.chroma + y * a.chromaStride, b.chroma + y * b.chromaStride, width) != 0)
            return false;
    }
    return true;
}

// A desk and what it should look like.
struct Drawn {
    explicit Drawn(const XServer& server, int width = 640, int height = 480)
        : desk(server.display()), canvas(width, height) {
        std::vector<std::uint32_t> colours;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                // Smooth, and the same nowhere.
                canvas.at(x, y) = static_cast<std::uint32_t>(x * 255 / width) << 16 |
                                  static_cast<std::uint32_t>(y * 255 / height) << 8 |
                                  static_cast<std::uint32_t>((x + y) / 8 % 256);
            }
        }
        desk.put({0, 0, width, height}, canvas.colours);
        desk.movePointer(0, height - 1);
        desk.shapePointer(1, 1, 0);  // nothing to be seen
    }
    void fill(const Rect& area, std::uint32_t colour) {
        desk.fill(area, colour);
        canvas.fill(area, colour);
    }
    void fillSomewhere(std::mt19937& random) {
        fill(canvas.randomPart(random), static_cast<std::uint32_t>(random()) & 0xFFFFFF);
    }

    XDesk desk;
    Canvas canvas;
};

ScreenSource::Configuration sized(int width, int height) {
    ScreenSource::Configuration configuration;
    configuration.width = width;
    configuration.height = height;
    return configuration;
}

class X11Capturing : public testing::Test {
protected:
    static void SetUpTestSuite() { std::signal(SIGPIPE, SIG_IGN); }
};

TEST_F(X11Capturing, listsTheMonitorsInPointsThatArePixels) {
    const XServer server;
    XDesk desk(server.display());
    desk.setMonitor("LEFT", {0, 0, 200, 480});
    desk.setMonitor("RIGHT", {200, 0, 440, 300}, true);
    Watching watching(server.display());
    const auto list = watching.list();
    EXPECT_FALSE(list.error);
    ASSERT_EQ(list.displays.size(), 2u);
    const auto& main = list.displays[list.displays[0].isMain ? 0 : 1];
    EXPECT_EQ(main.name, "RIGHT");
    EXPECT_EQ(main.width, 440);
    EXPECT_EQ(main.height, 300);
    EXPECT_EQ(main.pixelWidth, 440);
}

TEST_F(X11Capturing, deliversTheScreenAsDrawnAndThenOnlyWhatChanges) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    ASSERT_TRUE(watching.comesToShow(drawn.canvas));
    EXPECT_EQ(watching.picture()->sequence, 1u);
    EXPECT_EQ(watching.picture()->changed, (std::vector<Rect>{{0, 0, 640, 480}}));

    drawn.fill({100, 100, 20, 10}, 0xFFEE00);
    ASSERT_TRUE(watching.comesToShow(drawn.canvas));
    EXPECT_EQ(watching.picture()->sequence, 2u);
    EXPECT_EQ(watching.picture()->changed, (std::vector<Rect>{{96, 96, 32, 16}}));
}

TEST_F(X11Capturing, aStillScreenIsReportedOnceEachTimeItComesToRest) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    for (const std::uint32_t colour : {0xFF0000, 0x00FF00, 0x0000FF}) {
        ASSERT_TRUE(watching.comesToRest());
        drawn.fill({10, 10, 50, 50}, colour);
        ASSERT_TRUE(watching.comesToShow(drawn.canvas));
    }
    ASSERT_TRUE(watching.comesToRest());
    EXPECT_EQ(watching.history(), "cicicici");
}

TEST_F(X11Capturing, buffersInUseAgainShowNothingStale) {
    constexpr int seed = 5;
    std::mt19937 random(seed);
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    for (int round = 0; round < 60; ++round) {
        watching.keep(random() % 4);
        drawn.fillSomewhere(random);
        ASSERT_TRUE(watching.comesToShow(drawn.canvas)) << "round " << round << ", seed " << seed;
    }
}

TEST_F(X11Capturing, waitsWhileAllBuffersAreInUseAndMissesNothing) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    auto configuration = sized(640, 480);
    configuration.queueDepth = 3;
    watching.keep(3);
    ASSERT_FALSE(watching.start({}, configuration));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(watching.comesToShow(drawn.canvas));
        drawn.fill({i * 50, 0, 30, 30}, 0xFF0000);
    }
    // The third picture's buffer is kept too; the last fill finds none free.
    drawn.fill({0, 200, 30, 30}, 0x00FF00);
    watching.onQueue([](auto done) { done(); });
    EXPECT_EQ(watching.picture()->sequence, 3u);
    watching.keep(2);
    EXPECT_TRUE(watching.comesToShow(drawn.canvas));
    EXPECT_EQ(watching.picture()->sequence, 4u);
}

TEST_F(X11Capturing, drawsThePointerAndTakesItAwayWhereItWas) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    ASSERT_TRUE(watching.comesToShow(drawn.canvas));

    drawn.desk.shapePointer(24, 16, 0xFF00C000);
    const auto withPointer = [&](int x, int y) {
        Canvas canvas = drawn.canvas;
        canvas.fill({x, y, 24, 16}, 0x00C000);
        return canvas;
    };
    EXPECT_TRUE(watching.comesToShow(withPointer(0, 479)));
    for (const auto& [x, y] : {std::pair(100, 100), {101, 103}, {300, 50}, {630, 470}, {5, 7}}) {
        SCOPED_TRACE(x);
        drawn.desk.movePointer(x, y);
        EXPECT_TRUE(watching.comesToShow(withPointer(x, y)));
    }
    // Over what changes beneath it.
    drawn.fill({0, 0, 60, 60}, 0x884422);
    EXPECT_TRUE(watching.comesToShow(withPointer(5, 7)));

    // No device moves: seen with the next picture.
    drawn.desk.warpPointer(200, 200);
    drawn.fill({400, 400, 8, 8}, 0xFFFFFF);
    EXPECT_TRUE(watching.comesToShow(withPointer(200, 200)));

    // Half transparent red over white.
    drawn.fill({0, 0, 640, 480}, 0xFFFFFF);
    drawn.desk.shapePointer(10, 10, 0x80800000);
    Canvas blended = drawn.canvas;
    blended.fill({200, 200, 10, 10}, 0xFF7F7F);
    EXPECT_TRUE(watching.comesToShow(blended));
}

TEST_F(X11Capturing, leavesThePointerOutWhenTold) {
    const XServer server;
    Drawn drawn(server);
    drawn.desk.shapePointer(24, 16, 0xFF00C000);
    drawn.desk.movePointer(100, 100);
    Watching watching(server.display());
    auto configuration = sized(640, 480);
    configuration.showsCursor = false;
    ASSERT_FALSE(watching.start({}, configuration));
    ASSERT_TRUE(watching.comesToShow(drawn.canvas));
    drawn.desk.movePointer(200, 100);
    drawn.fill({100, 100, 8, 8}, 0);
    EXPECT_TRUE(watching.comesToShow(drawn.canvas));
    EXPECT_EQ(watching.picture()->sequence, 2u);
}

TEST_F(X11Capturing, capturesTheMonitorWhereverItLies) {
    const XServer server;
    Drawn drawn(server);
    drawn.desk.setMonitor("LEFT", {-100, -50, 301, 350});
    drawn.desk.setMonitor("RIGHT", {202, 101, 400, 301});
    for (const auto& [name, area] :
         {std::pair("LEFT", Rect{0, 0, 201, 300}), std::pair("RIGHT", Rect{202, 101, 400, 301})}) {
        SCOPED_TRACE(name);
        Watching watching(server.display());
        ASSERT_FALSE(watching.start(name));
        EXPECT_TRUE(watching.comesToShow(drawn.canvas.part(area)));
        // Across the border, and beyond it.
        drawn.fill({150, 120, 100, 40}, 0x00FFFF);
        drawn.fill({620, 470, 10, 5}, 0xFF00FF);
        EXPECT_TRUE(watching.comesToShow(drawn.canvas.part(area)));
        drawn.fill({150, 120, 100, 40}, 0x55AA55);
        EXPECT_TRUE(watching.comesToShow(drawn.canvas.part(area)));
    }
}

TEST_F(X11Capturing, whatHappensOnAnotherMonitorMakesNoPicture) {
    const XServer server;
    Drawn drawn(server);
    drawn.desk.setMonitor("LEFT", {0, 0, 320, 480}, true);
    drawn.desk.setMonitor("RIGHT", {320, 0, 320, 480});
    drawn.desk.shapePointer(24, 16, 0xFF00C000);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start("LEFT"));
    ASSERT_TRUE(watching.comesToRest());
    const auto before = watching.picture()->sequence;
    for (int i = 0; i < 20; ++i) {
        drawn.fill({400, 0, 100, 100}, i % 2 ? 0xFF0000 : 0x0000FF);
        drawn.desk.movePointer(400 + i, 300);
    }
    ASSERT_TRUE(watching.comesToRest());
    drawn.fill({0, 0, 30, 30}, 0xFF0000);
    ASSERT_TRUE(watching.comesToShow(drawn.canvas.part({0, 0, 320, 480})));
    // One for the pointer that left, if it was not seen together with the last fill.
    EXPECT_LE(watching.picture()->sequence, before + 2);
}

TEST_F(X11Capturing, aScaledPictureIsTheSameInPartsAsInWhole) {
    constexpr int seed = 9;
    const XServer server;
    const struct {
        const char* name;
        int width, height;
    } rows[] = {{"three quarters", 480, 360}, {"half", 320, 240}, {"less than half", 200, 150}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::mt19937 random(seed);
        Drawn drawn(server);
        Watching watching(server.display());
        ASSERT_FALSE(watching.start({}, sized(row.width, row.height)));
        for (int round = 0; round < 15; ++round) {
            drawn.fillSomewhere(random);
            drawn.desk.movePointer(static_cast<int>(random() % 640),
                                   static_cast<int>(random() % 480));
            // A fresh capture scales everything.
            Watching fresh(server.display());
            ASSERT_FALSE(fresh.start({}, sized(row.width, row.height)));
            ASSERT_TRUE(fresh.comesToRest());
            const auto want = fresh.picture();
            EXPECT_TRUE(eventually([&] {
                const auto got = watching.picture();
                return got && isSame(*got, *want);
            })) << "round "
                << round;
        }
    }
}

TEST_F(X11Capturing, makesNoMorePicturesThanAskedFor) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    auto configuration = sized(640, 480);
    configuration.framesPerSecond = 50;
    ASSERT_FALSE(watching.start({}, configuration));
    for (int i = 0; watching.times().size() < 30; ++i) {
        ASSERT_LT(i, 1'000'000);
        drawn.fill({i % 600, 10, 20, 20}, i % 2 ? 0xFFFFFF : 0);
    }
    const auto times = watching.times();
    // A few that were missed while the screen was still may be made up for.
    EXPECT_GE(times.back() - times[1], 20ms * static_cast<int>(times.size() - 2) - 50ms);
    for (std::size_t i = 1; i < times.size(); ++i)
        EXPECT_GE(times[i] - times[i - 1], 10ms) << "picture " << i;
}

TEST_F(X11Capturing, aCaptureStoppedByItsOwnConsumerIsSilent) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    ASSERT_TRUE(watching.comesToRest());
    std::promise<void> stopped;
    watching.onQueue([&](auto done) {
        watching.whenReceived = [&] {
            watching.whenReceived = {};
            watching.stop([&] { stopped.set_value(); });
        };
        done();
    });
    drawn.fill({0, 0, 20, 20}, 0xFF0000);
    ASSERT_EQ(stopped.get_future().wait_for(patience), std::future_status::ready);
    drawn.fill({0, 0, 20, 20}, 0x00FF00);
    watching.onQueue([](auto done) { done(); });
    EXPECT_EQ(watching.history(), "cic");
    EXPECT_TRUE(watching.stopped().empty());
}

TEST_F(X11Capturing, endsWithTheServerAndStartsOnTheNext) {
    XServer server;
    Watching watching(server.display());
    {
        Drawn drawn(server);
        ASSERT_FALSE(watching.start());
        ASSERT_TRUE(watching.comesToShow(drawn.canvas));
    }
    server.kill();
    ASSERT_TRUE(eventually([&] { return !watching.stopped().empty(); }));
    EXPECT_EQ(watching.stopped(),
              std::vector<std::string>{"the connection to the X server is lost"});
    EXPECT_TRUE(watching.list().error);
    EXPECT_TRUE(watching.start(sized(640, 480)));
    watching.stop();

    server.restart();
    Drawn drawn(server);
    Watching again(server.display());
    ASSERT_FALSE(again.start());
    EXPECT_TRUE(again.comesToShow(drawn.canvas));
    EXPECT_EQ(watching.stopped().size(), 1u);
}

// The left and the right half of the picture but for the middle, where a filter mixes the two.
bool showsHalves(const PixelBuffer& picture, std::uint32_t left, std::uint32_t right) {
    const int width = picture.width / 2 - 10;
    Canvas leftColour(width, picture.height), rightColour(width, picture.height);
    leftColour.fill({0, 0, width, picture.height}, left);
    rightColour.fill({0, 0, width, picture.height}, right);
    PixelBuffer half;
    half.width = width;
    half.height = picture.height;
    half.lumaStride = picture.lumaStride;
    half.chromaStride = picture.chromaStride;
    half.luma = picture.luma;
    half.chroma = picture.chroma;
    if (!shows(half, leftColour)) return false;
    half.luma += width + 20;
    half.chroma += width + 20;
    return static_cast<bool>(shows(half, rightColour));
}

TEST_F(X11Capturing, keepsThePicturesSizeWhenTheMonitorChangesItsOwn) {
    const struct {
        const char* name;
        std::vector<std::string> serverArguments;
    } rows[] = {{"shared memory", {}}, {"through the socket", {"-extension", "MIT-SHM"}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XServer server({.arguments = row.serverArguments});
        Drawn drawn(server);
        Watching watching(server.display());
        ASSERT_FALSE(watching.start());
        ASSERT_TRUE(watching.comesToShow(drawn.canvas));
        for (const auto& [width, height] : {std::pair(320, 240), {500, 300}, {640, 480}}) {
            SCOPED_TRACE(width);
            drawn.desk.resize(width, height);
            drawn.desk.fill({0, 0, width, height}, 0x3366CC);
            drawn.desk.fill({width / 2, 0, width - width / 2, height}, 0xCC6633);
            EXPECT_TRUE(
                eventually([&] { return showsHalves(*watching.picture(), 0x3366CC, 0xCC6633); }));
            EXPECT_EQ(watching.picture()->width, 640);
            // So that the next size is not mistaken for this one.
            drawn.desk.fill({0, 0, width, height}, 0);
            EXPECT_TRUE(eventually([&] { return showsHalves(*watching.picture(), 0, 0); }));
        }
        EXPECT_TRUE(watching.stopped().empty());
    }
}

TEST_F(X11Capturing, endsWhenTheMonitorIsGoneForGood) {
    const XServer server;
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    ASSERT_TRUE(watching.comesToRest());
    drawn.desk.switchOff();
    ASSERT_TRUE(eventually([&] { return !watching.stopped().empty(); }));
    EXPECT_EQ(watching.stopped(), std::vector<std::string>{"the display was removed"});
    const auto list = watching.list();
    EXPECT_TRUE(list.displays.empty());
    EXPECT_FALSE(list.error);
}

TEST_F(X11Capturing, saysWhyItCannotStart) {
    const struct {
        const char* name;
        std::vector<std::string> serverArguments;
        const char* want;
    } rows[] = {
        {"no DAMAGE", {"-extension", "DAMAGE"}, "the X server lacks the DAMAGE extension"},
        {"another depth",
         {"-screen", "0", "640x480x16"},
         "the X server's screen has a depth of 16, not of 24 in four bytes"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XServer server({.arguments = row.serverArguments});
        Watching watching(server.display());
        const auto error = watching.start();
        ASSERT_TRUE(error);
        EXPECT_EQ(error->description, row.want);
    }
    const XServer server;
    Watching watching(server.display());
    auto configuration = sized(640, 480);
    configuration.displayID = 1;
    const auto error = watching.start(configuration);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->description, "there is no such display");

    Watching nowhere("no-display");
    EXPECT_TRUE(nowhere.start(sized(640, 480)));
    EXPECT_EQ(nowhere.list().error.value().description, "no X display is named");
}

TEST_F(X11Capturing, worksWithoutSharedMemory) {
    const XServer server({.arguments = {"-extension", "MIT-SHM"}});
    constexpr int seed = 2;
    std::mt19937 random(seed);
    Drawn drawn(server);
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    for (int round = 0; round < 20; ++round) {
        drawn.fillSomewhere(random);
        ASSERT_TRUE(watching.comesToShow(drawn.canvas)) << "round " << round;
    }
}

int entriesOf(const char* folder) {
    int count = 0;
    DIR* opened = opendir(folder);
    while (readdir(opened))
        ++count;
    closedir(opened);
    return count;
}

int screenMappings() {
    const std::string maps = fileText("/proc/self/maps");
    int count = 0;
    for (auto at = maps.find("orvel-screen"); at != std::string::npos;
         at = maps.find("orvel-screen", at + 1))
        ++count;
    return count;
}

TEST_F(X11Capturing, startingAndStoppingLeavesNothingBehind) {
    const XServer server;
    Drawn drawn(server);
    const std::string servers = "/proc/" + std::to_string(server.id()) + "/fd";
    const int serverDescriptors = entriesOf(servers.c_str());
    Watching watching(server.display());
    ASSERT_FALSE(watching.start());
    EXPECT_EQ(screenMappings(), 1);
    watching.stop();
    const int descriptors = entriesOf("/proc/self/fd");
    for (int round = 0; round < 50; ++round) {
        ASSERT_FALSE(watching.start());
        // Now and then while it is busy.
        if (round % 2) {
            ASSERT_TRUE(watching.comesToShow(drawn.canvas));
        }
        watching.stop();
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(screenMappings(), 0);
    EXPECT_TRUE(watching.stopped().empty());
    EXPECT_TRUE(eventually([&] { return entriesOf(servers.c_str()) == serverDescriptors; }));
}

}  // namespace
}  // namespace orvel
