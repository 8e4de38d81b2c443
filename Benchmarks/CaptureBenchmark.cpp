// orvel-capture-benchmark [--seconds N] [--benchmark_filter REGEX]: what capturing a screen costs
// and how soon a picture is there, on an X server of its own. One line for each kind of screen;
// times on a busy machine are hints.

#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "OrvelAgent/Platform/Linux/X11ScreenSource.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "Tests/Support/XDesk.h"
#include "Tests/Support/XServer.h"

using namespace std::chrono_literals;
using orvel::MonotonicTime;
using orvel::Rect;
using orvel::ScreenSource;
using orvel::SerialQueue;
using orvel::XDesk;
using orvel::XServer;

namespace {

using Clock = std::chrono::steady_clock;

double threadSeconds() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

// What the main thread of a process used of the processor so far.
double processSeconds(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/schedstat");
    double nanoseconds = 0;
    file >> nanoseconds;
    return nanoseconds * 1e-9;
}

// A capture, its pictures counted.
class Capture {
public:
    Capture(const XServer& server, int width, int height) {
        run([&](auto done) {
            source = std::make_unique<orvel::X11ScreenSource>(queue, server.display());
            source->listDisplays([&, done, width, height](ScreenSource::DisplayList list) {
                ScreenSource::Configuration configuration;
                configuration.displayID = list.displays.at(0).id;
                configuration.width = width;
                configuration.height = height;
                ScreenSource::Handlers handlers;
                handlers.onSample = [this](const auto& sample) { receive(sample); };
                source->start(configuration, handlers, [done](auto error) {
                    if (error) std::fprintf(stderr, "%s\n", error->description.c_str());
                    done();
                });
            });
        });
        tick();
    }
    ~Capture() {
        run([&](auto done) {
            timer.cancel();
            source.reset();
            done();
        });
    }

    double usedSeconds() {
        double used = 0;
        run([&](auto done) {
            used = threadSeconds();
            done();
        });
        return used;
    }
    // The time from `drawing` to the next picture counts.
    void expectPicture(MonotonicTime drawing) {
        const std::lock_guard hold(mutex);
        drawnAt = drawing;
    }
    std::vector<double> takeLatencies() {
        const std::lock_guard hold(mutex);
        return std::exchange(latencies, {});
    }
    std::atomic<int> pictures{0};

private:
    void receive(const ScreenSource::Sample& sample) {
        if (!sample.image) return;
        ++pictures;
        last = sample.image;  // held, as its consumer does for a still screen
        const std::lock_guard hold(mutex);
        if (const auto since = std::exchange(drawnAt, MonotonicTime{}); since != MonotonicTime{})
            latencies.push_back(
                std::chrono::duration<double, std::milli>(Clock::now() - since).count());
    }
    // The consumer looks four times a second whether the screen is still.
    void tick() {
        timer = queue.after(250ms, [this] { tick(); });
    }
    template <class Body>
    void run(Body body) {
        std::promise<void> promise;
        queue.post([&] { body([&promise] { promise.set_value(); }); });
        promise.get_future().wait();
    }

    SerialQueue queue{"orvel.capture"};
    orvel::Timer timer;
    std::unique_ptr<orvel::X11ScreenSource> source;
    std::shared_ptr<const orvel::PixelBuffer> last;
    std::mutex mutex;  // guards the following
    MonotonicTime drawnAt;
    std::vector<double> latencies;  // ms
};

struct Scene {
    const char* name;
    int width, height;                // of the screen, pixels
    int pictureWidth, pictureHeight;  // pixels
    double rate;                      // changes a second; 0: none
    std::function<void(XDesk&, const Scene&, int step)> change;
};

void scrollAll(XDesk& desk, const Scene& scene, int step) {
    // Up and down: something moves for ever.
    const int by = 16, from = step / 8 % 2 ? by : 0;
    desk.copy({0, from, scene.width, scene.height - by}, 0, by - from);
}

void typeOne(XDesk& desk, const Scene&, int step) {
    desk.fill({100 + step * 9 % 900, 300, 9, 18}, step % 2 ? 0xFFFFFF : 0x202020);
}

void movePointer(XDesk& desk, const Scene& scene, int step) {
    desk.movePointer(step * 7 % scene.width, 200 + step * 3 % 300);
}

const Scene scenes[] = {
    {"everything moves", 1920, 1080, 1920, 1080, 60, scrollAll},
    {"a letter, 60 a second", 1920, 1080, 1920, 1080, 60, typeOne},
    {"a letter, 7 a second", 1920, 1080, 1920, 1080, 7, typeOne},
    {"the pointer", 1920, 1080, 1920, 1080, 60, movePointer},
    {"still", 1920, 1080, 1920, 1080, 0, nullptr},
    {"1440p as 1080p, all", 2560, 1440, 1920, 1080, 60, scrollAll},
    {"1440p as 1080p, letter", 2560, 1440, 1920, 1080, 60, typeOne},
    {"2160p as 1080p, all", 3840, 2160, 1920, 1080, 60, scrollAll},
};

double quantile(std::vector<double> values, double part) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

void measure(const Scene& scene, double seconds) {
    const XServer server({.width = scene.width, .height = scene.height});
    XDesk desk(server.display());
    Capture capture(server, scene.pictureWidth, scene.pictureHeight);
    std::this_thread::sleep_for(300ms);

    const int picturesBefore = capture.pictures;
    const double usedBefore = capture.usedSeconds(), serverBefore = processSeconds(server.id());
    const auto start = Clock::now();
    const auto end =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    if (scene.rate == 0) std::this_thread::sleep_until(end);
    auto due = start;
    for (int step = 0; scene.rate > 0 && Clock::now() < end; ++step) {
        capture.expectPicture(Clock::now());
        scene.change(desk, scene, step);
        due += std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(1 / scene.rate));
        std::this_thread::sleep_until(due);
    }
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    const int pictures = capture.pictures - picturesBefore;
    const double used = capture.usedSeconds() - usedBefore;
    const double serverUsed = processSeconds(server.id()) - serverBefore;
    const auto latencies = capture.takeLatencies();
    const double each = 1000.0 / std::max(pictures, 1);
    std::printf("%-24s %7.1f %9.3f %9.3f %9.2f %9.2f %9.2f\n", scene.name, pictures / took,
                pictures ? used * each : 0, pictures ? serverUsed * each : 0, used / took * 100,
                quantile(latencies, 0.5), quantile(latencies, 0.95));
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("What capturing a screen costs");
    double seconds = 5;
    std::string filter;
    app.add_option("--seconds", seconds, "for each kind of screen")->check(CLI::PositiveNumber);
    // Called as in the other benchmarks, so that one command runs them all.
    app.add_option("--benchmark_filter", filter, "a regular expression for the kinds of screen");
    CLI11_PARSE(app, argc, argv);
    std::signal(SIGPIPE, SIG_IGN);

    std::printf("%-24s %7s %9s %9s %9s %9s %9s\n", "", "", "ms each", "server", "% of a",
                "change to", "picture");
    std::printf("%-24s %7s %9s %9s %9s %9s %9s\n", "screen", "per s", "", "ms each", "core",
                "median ms", "95 % ms");
    for (const auto& scene : scenes) {
        if (std::regex_search(scene.name, std::regex(filter))) measure(scene, seconds);
    }
    return 0;
}
