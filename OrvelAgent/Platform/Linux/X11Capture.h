#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/ScreenSource.h"

namespace orvel {

// One running capture of one monitor, with a connection of its own. It sleeps until the server
// says that something changed and takes the picture at once, as long as they do not become more
// than wanted; what its consumer takes of the time between two counts. A still screen costs
// nothing.
//
// The picture keeps its size when the monitor changes its own or is moved. A monitor that goes for
// longer than a change of mode takes ends the capture.
class X11Capture : public std::enable_shared_from_this<X11Capture> {
public:
    // Numbers its pictures from lastSequence + 1. Throws X11Failure. Delivers nothing before
    // begin().
    X11Capture(SerialQueue& captureQueue, const std::string& display,
               const ScreenSource::Configuration& configuration, std::uint64_t lastSequence);
    ~X11Capture();
    X11Capture(const X11Capture&) = delete;
    X11Capture& operator=(const X11Capture&) = delete;

    // Both on the queue.
    void begin(ScreenSource::Handlers handlers);
    // Lets everything go. No handler is called any more.
    void end();
    // The number of the last picture.
    std::uint64_t sequence() const;

private:
    // What there is while the server is.
    struct Screen;

    void look() RUNS_ON(queue);
    void lookNow() RUNS_ON(queue);
    void lookAt(MonotonicTime time) RUNS_ON(queue);
    void lookAtNextEvent() RUNS_ON(queue);
    void readEvents() RUNS_ON(queue);
    void handle(const xcb_generic_event_t& event) RUNS_ON(queue);
    void followLayout() RUNS_ON(queue);
    bool takePicture() RUNS_ON(queue);
    bool deliver(const ScreenSource::Sample& sample) RUNS_ON(queue);
    void fail(const std::string& description) RUNS_ON(queue);

    SerialQueue& queue;
    const ScreenSource::Configuration configuration;
    const Duration interval;  // between two pictures
    std::unique_ptr<Screen> screen OWNED_BY(queue);
    // Shared, so that a handler may end the capture that calls it.
    std::shared_ptr<const ScreenSource::Handlers> handlers OWNED_BY(queue);

    std::uint64_t lastSequence OWNED_BY(queue);
    Timer nextLook OWNED_BY(queue);
    bool isWaiting OWNED_BY(queue) = false;    // for an event
    bool isMoving OWNED_BY(queue) = false;     // a picture was delivered and no idle sample since
    MonotonicTime paceDue OWNED_BY(queue);     // of the next one at the wanted rate
    MonotonicTime pictureDue OWNED_BY(queue);  // it is not before
    MonotonicTime restDue OWNED_BY(queue);     // without another one by then the screen is still
};

}  // namespace orvel
