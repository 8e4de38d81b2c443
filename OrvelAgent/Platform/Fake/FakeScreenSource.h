#pragma once

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Fake/FakePixelBuffer.h"
#include "OrvelAgent/Platform/ScreenSource.h"

namespace orvel {

// The screen behind a FakeScreenSource: the test's end of it. It may outlive the source.
// Any thread may call; fields and `calls` are for a test whose queues are quiet.
class FakeScreen {
public:
    FakeScreen(SerialQueue& captureQueue, SerialQueue& soundQueue)
        : queue(captureQueue), audioQueue(soundQueue) {}

    // What the source answers.
    std::vector<ScreenSource::DisplayDescription> displays = {
        {1, "Fake display", 1280, 720, 1280, true}};
    std::optional<CaptureError> listError, startError;

    // Calls as they came in: "list", "start 1 1280x720", "stop".
    std::vector<std::string> calls;
    std::optional<ScreenSource::Configuration> running;
    int misuses = 0;  // starts without a stop in between

    // From now on the answers to "list", "start" or "stop" wait, until as many calls of proceed().
    void hold(const std::string& call) {
        const std::lock_guard guard(lock);
        held[call];
    }
    void proceed(const std::string& call) {
        std::function<void()> answer;
        {
            const std::lock_guard guard(lock);
            auto& answers = held[call];
            if (answers.empty()) return;
            answer = std::move(answers.front());
            answers.erase(answers.begin());
        }
        queue.post(std::move(answer));
    }

    // A sample, if a capture runs when the capture queue gets to it.
    void deliver(ScreenSource::Sample sample) {
        queue.post([this, sample = std::move(sample)] {
            if (running && handlers.onSample) handlers.onSample(sample);
        });
    }
    // A picture taken now.
    void deliver(std::shared_ptr<const PixelBuffer> image) {
        deliver({ScreenSource::SampleStatus::complete, std::move(image), queue.now()});
    }
    // A grey picture of the running capture's size; `level` its brightness.
    void show(std::uint8_t level) {
        queue.post([this, level] {
            if (!running) return;
            auto image = FakePixelBuffer::grey(running->width, running->height, ++shown, level);
            handlers.onSample(
                {ScreenSource::SampleStatus::complete, std::move(image), queue.now()});
        });
    }
    // Silence in the canonical format, if sound is captured when the capture queue gets to it.
    void sound(std::size_t frameCount) {
        queue.post([this, frameCount] {
            if (!running || !running->capturesAudio || !handlers.onAudio) return;
            audioQueue.post([onAudio = handlers.onAudio, frameCount] {
                const Bytes channel(frameCount * sizeof(float));
                const std::array<ByteView, 2> buffers{channel, channel};
                onAudio({canonicalPcm, frameCount, buffers});
            });
        });
    }
    // The capture ends by itself.
    void end(std::optional<CaptureError> error) {
        queue.post([this, error] {
            if (!running) return;
            running.reset();
            if (const auto onStop = std::exchange(handlers, {}).onStop) onStop(error);
        });
    }

private:
    friend class FakeScreenSource;

    void answer(const std::string& call, std::function<void()> body) {
        {
            const std::lock_guard guard(lock);
            if (const auto waiting = held.find(call); waiting != held.end()) {
                waiting->second.push_back(std::move(body));
                return;
            }
        }
        queue.post(std::move(body));
    }

    SerialQueue& queue;
    SerialQueue& audioQueue;
    std::mutex lock;
    std::map<std::string, std::vector<std::function<void()>>> held;
    ScreenSource::Handlers handlers;
    std::uint64_t shown = 0;
};

class FakeScreenSource : public ScreenSource {
public:
    FakeScreenSource(SerialQueue& captureQueue, std::shared_ptr<FakeScreen> fakeScreen)
        : queue(captureQueue), screen(std::move(fakeScreen)) {}
    ~FakeScreenSource() override {
        screen->running.reset();
        screen->handlers = {};
    }

    void listDisplays(std::function<void(DisplayList)> completion) override {
        queue.assertCurrent();
        screen->calls.push_back("list");
        screen->answer("list", [screen = screen, completion] {
            completion({screen->displays, screen->listError});
        });
    }

    void start(const Configuration& configuration, Handlers handlers,
               std::function<void(std::optional<CaptureError>)> completion) override {
        queue.assertCurrent();
        screen->calls.push_back("start " + std::to_string(configuration.displayID) + " " +
                                std::to_string(configuration.width) + "x" +
                                std::to_string(configuration.height));
        if (screen->running) ++screen->misuses;
        screen->answer("start", [screen = screen, configuration, handlers, completion] {
            if (!screen->startError) {
                screen->running = configuration;
                screen->handlers = handlers;
            }
            completion(screen->startError);
        });
    }

    void setCapturesAudio(bool captures) override {
        queue.assertCurrent();
        if (screen->running) screen->running->capturesAudio = captures;
    }

    void stop(std::function<void()> completion) override {
        queue.assertCurrent();
        screen->calls.push_back("stop");
        screen->running.reset();
        screen->handlers = {};
        screen->answer("stop", std::move(completion));
    }

private:
    SerialQueue& queue;
    const std::shared_ptr<FakeScreen> screen;
};

}  // namespace orvel
