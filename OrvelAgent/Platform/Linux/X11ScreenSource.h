#pragma once

#include <memory>
#include <string>

#include "OrvelAgent/Platform/ScreenSource.h"

namespace orvel {

class X11Capture;

// The monitors of an X server, without sound, which X has none of. It keeps no connection but that
// of a running capture, so a server that went away and came back needs nothing special.
class X11ScreenSource : public ScreenSource {
public:
    // `display` as in $DISPLAY; empty stands for what that says.
    explicit X11ScreenSource(SerialQueue& captureQueue, std::string display = {});
    ~X11ScreenSource() override;

    void listDisplays(std::function<void(DisplayList)> completion) override;
    void start(const Configuration& configuration, Handlers handlers,
               std::function<void(std::optional<CaptureError>)> completion) override;
    void setCapturesAudio(bool) override {}
    void stop(std::function<void()> completion) override;

private:
    SerialQueue& queue;
    const std::string display;
    void endCapture() RUNS_ON(queue);

    std::shared_ptr<X11Capture> capture OWNED_BY(queue);
    std::uint64_t lastSequence OWNED_BY(queue) = 0;  // of the captures before this one
};

}  // namespace orvel
