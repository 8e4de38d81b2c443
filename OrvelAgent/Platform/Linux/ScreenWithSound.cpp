#include "OrvelAgent/Platform/Linux/ScreenWithSound.h"

#include <utility>

#include "OrvelAgent/Platform/Linux/PulseMonitor.h"

namespace orvel {

struct ScreenWithSound::Capture {
    std::function<void(const AudioSamples&)> onAudio;
    bool capturesAudio;
    bool isRunning = false;  // the start was answered
};

ScreenWithSound::ScreenWithSound(SerialQueue& captureQueue, SerialQueue& soundQueue,
                                 std::unique_ptr<ScreenSource> pictures,
                                 std::shared_ptr<PulseMonitor> sound)
    : queue(captureQueue),
      audioQueue(soundQueue),
      screen(std::move(pictures)),
      monitor(std::move(sound)) {}

ScreenWithSound::~ScreenWithSound() {
    if (isListening) audioQueue.post([sound = monitor] { sound->stop(); });
}

void ScreenWithSound::listDisplays(std::function<void(DisplayList)> completion) {
    queue.assertCurrent();
    screen->listDisplays(std::move(completion));
}

void ScreenWithSound::start(const Configuration& configuration, Handlers handlers,
                            std::function<void(std::optional<CaptureError>)> completion) {
    queue.assertCurrent();
    endCapture();
    capture = std::make_shared<Capture>(
        Capture{std::exchange(handlers.onAudio, nullptr), configuration.capturesAudio});
    // A capture lives as long as this holds it, so while it can be locked this is there.
    handlers.onStop = [this, weak = std::weak_ptr(capture),
                       onStop = std::move(handlers.onStop)](auto error) {
        if (!weak.expired()) {
            queue.assertCurrent();
            endCapture();
        }
        if (onStop) onStop(std::move(error));
    };
    screen->start(
        configuration, std::move(handlers),
        [this, weak = std::weak_ptr(capture), completion = std::move(completion)](auto error) {
            completion(error);
            if (weak.expired()) return;
            queue.assertCurrent();
            if (error) return endCapture();
            capture->isRunning = true;
            updateSound();
        });
}

void ScreenWithSound::setCapturesAudio(bool captures) {
    queue.assertCurrent();
    if (!capture) return;
    capture->capturesAudio = captures;
    updateSound();
}

void ScreenWithSound::stop(std::function<void()> completion) {
    queue.assertCurrent();
    endCapture();
    // What was on its way when the monitor was told to stop has arrived once that queue answers.
    screen->stop([&to = queue, &through = audioQueue, completion = std::move(completion)] {
        through.post([&to, completion] { to.post(completion); });
    });
}

void ScreenWithSound::updateSound() {
    const bool wanted = capture && capture->isRunning && capture->capturesAudio && capture->onAudio;
    if (std::exchange(isListening, wanted) == wanted) return;
    if (wanted) {
        audioQueue.post([sound = monitor, onAudio = capture->onAudio] { sound->start(onAudio); });
    } else {
        audioQueue.post([sound = monitor] { sound->stop(); });
    }
}

void ScreenWithSound::endCapture() {
    capture.reset();
    updateSound();
}

}  // namespace orvel
