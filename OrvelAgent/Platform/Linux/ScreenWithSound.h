#pragma once

#include <functional>
#include <memory>

#include "OrvelAgent/Platform/ScreenSource.h"

namespace orvel {

class PulseMonitor;

// Pictures from one source, and with them the sound of this computer. The picture decides: a
// capture begins and ends with it, and nothing that happens to the sound changes that.
class ScreenWithSound : public ScreenSource {
public:
    // `screen` was made with the capture queue, `monitor` with the audio queue. That one ends
    // before the capture queue, to which it posts.
    ScreenWithSound(SerialQueue& captureQueue, SerialQueue& audioQueue,
                    std::unique_ptr<ScreenSource> screen, std::shared_ptr<PulseMonitor> monitor);
    ~ScreenWithSound() override;

    void listDisplays(std::function<void(DisplayList)> completion) override;
    void start(const Configuration& configuration, Handlers handlers,
               std::function<void(std::optional<CaptureError>)> completion) override;
    void setCapturesAudio(bool captures) override;
    void stop(std::function<void()> completion) override;

private:
    struct Capture;
    // Makes the sound what the capture says.
    void updateSound() RUNS_ON(queue);
    void endCapture() RUNS_ON(queue);

    SerialQueue& queue;
    SerialQueue& audioQueue;
    const std::unique_ptr<ScreenSource> screen OWNED_BY(queue);
    const std::shared_ptr<PulseMonitor> monitor;       // used on the audio queue
    std::shared_ptr<Capture> capture OWNED_BY(queue);  // started last and not ended
    bool isListening OWNED_BY(queue) = false;          // as the audio queue was told
};

}  // namespace orvel
