#include "OrvelAgent/Platform/Linux/X11ScreenSource.h"

#include <utility>

#include "OrvelAgent/Platform/Linux/X11Capture.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/X11Monitors.h"

namespace orvel {

namespace {

ScreenSource::DisplayList readDisplays(const std::string& display) {
    ScreenSource::DisplayList list;
    try {
        const X11Connection x11(display);
        for (const auto& monitor : readMonitors(x11)) {
            // A point is a pixel: X has no other unit for places.
            list.displays.push_back(
                {monitor.id, monitor.name, static_cast<double>(monitor.area.width),
                 static_cast<double>(monitor.area.height), monitor.area.width, monitor.isMain});
        }
    } catch (const X11Failure& failure) {
        list.error = CaptureError{failure.what()};
    }
    return list;
}

}  // namespace

X11ScreenSource::X11ScreenSource(SerialQueue& captureQueue, std::string displayName)
    : queue(captureQueue), display(std::move(displayName)) {}

X11ScreenSource::~X11ScreenSource() = default;

void X11ScreenSource::listDisplays(std::function<void(DisplayList)> completion) {
    queue.assertCurrent();
    queue.post(
        [completion = std::move(completion), list = readDisplays(display)] { completion(list); });
}

void X11ScreenSource::start(const Configuration& configuration, Handlers handlers,
                            std::function<void(std::optional<CaptureError>)> completion) {
    queue.assertCurrent();
    endCapture();
    std::optional<CaptureError> error;
    try {
        capture = std::make_shared<X11Capture>(queue, display, configuration, lastSequence);
    } catch (const X11Failure& failure) {
        error = CaptureError{failure.what()};
    }
    queue.post([started = std::weak_ptr(capture), handlers = std::move(handlers),
                completion = std::move(completion), error]() mutable {
        completion(error);
        // Unless it was stopped before it began.
        if (const auto begun = started.lock()) begun->begin(std::move(handlers));
    });
}

void X11ScreenSource::endCapture() {
    if (!capture) return;
    capture->end();
    lastSequence = capture->sequence();
    capture.reset();
}

void X11ScreenSource::stop(std::function<void()> completion) {
    queue.assertCurrent();
    endCapture();
    queue.post([completion = std::move(completion)] { completion(); });
}

}  // namespace orvel
