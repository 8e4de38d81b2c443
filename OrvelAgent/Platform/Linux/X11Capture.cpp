#include "OrvelAgent/Platform/Linux/X11Capture.h"

#include <algorithm>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "OrvelAgent/Platform/Linux/PictureScaler.h"
#include "OrvelAgent/Platform/Linux/PixelBufferPool.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/X11Framebuffer.h"
#include "OrvelAgent/Platform/Linux/X11Monitors.h"
#include "OrvelAgent/Platform/Linux/X11Pointer.h"
#include "OrvelKit/Base/QueueIo.h"

using namespace std::chrono_literals;

namespace orvel {

namespace {

// A change of mode may switch the monitor off and on again.
constexpr Duration goneForGood = 2s;

// So often in a row, and it is no longer the monitor that was just changing.
constexpr int tooManyRefusals = 3;

}  // namespace

struct X11Capture::Screen {
    Screen(boost::asio::io_context& io, const std::string& display,
           const ScreenSource::Configuration& wanted)
        : x11(display),
          monitorEvents(x11),
          socket(io),
          pool(wanted.width, wanted.height, wanted.queueDepth),
          changed(wanted.width, wanted.height) {
        boost::system::error_code error;
        socket.assign(xcb_get_file_descriptor(x11.get()), error);
        if (error) throw X11Failure("the X server's socket cannot be waited for");
    }
    // The descriptor is the connection's.
    ~Screen() {
        if (socket.is_open()) socket.release();
    }

    // Where the display is now; nullopt when it is not there.
    std::optional<Rect> find(std::uint32_t displayID) const {
        for (const auto& monitor : readMonitors(x11)) {
            if (monitor.id == displayID) return monitor.area;
        }
        return std::nullopt;
    }

    // Starts over with that part of the root window.
    void show(const Rect& area, const ScreenSource::Configuration& wanted) {
        framebuffer.emplace(x11, area);
        if (wanted.showsCursor) pointer.emplace(x11);
        pointerPlace = {};
        scaler.emplace(area.width, area.height, wanted.width, wanted.height);
        isDamaged = true;
    }

    Rect inFramebuffer(Rect area) const {
        area.x -= framebuffer->area().x;
        area.y -= framebuffer->area().y;
        return area;
    }

    X11Connection x11;
    X11MonitorEvents monitorEvents;  // asked for first, so that no change goes unnoticed
    boost::asio::posix::stream_descriptor socket;
    std::optional<X11Framebuffer> framebuffer;
    std::optional<X11Pointer> pointer;  // if it is shown
    std::optional<PictureScaler> scaler;
    PixelBufferPool pool;
    ChangedTiles changed;  // between the last two pictures
    Rect pointerPlace;     // in the last picture, root coordinates

    bool isDamaged = true;
    bool isLayoutOld = false;  // monitors may have changed
    int refusals = 0;          // of the last pictures, perhaps because of that
    std::optional<MonotonicTime> goneSince;
};

X11Capture::X11Capture(SerialQueue& captureQueue, const std::string& display,
                       const ScreenSource::Configuration& wanted, std::uint64_t sequenceBefore)
    : queue(captureQueue),
      configuration(wanted),
      interval(Duration(1s) / std::max(wanted.framesPerSecond, 1)),
      screen(std::make_unique<Screen>(ioContext(captureQueue), display, wanted)),
      lastSequence(sequenceBefore) {
    const auto area = screen->find(configuration.displayID);
    if (!area) throw X11Failure("there is no such display");
    screen->show(*area, configuration);
}

X11Capture::~X11Capture() = default;

std::uint64_t X11Capture::sequence() const {
    queue.assertCurrent();
    return lastSequence;
}

void X11Capture::begin(ScreenSource::Handlers newHandlers) {
    queue.assertCurrent();
    handlers = std::make_shared<const ScreenSource::Handlers>(std::move(newHandlers));
    lookAt(queue.now());
}

void X11Capture::end() {
    queue.assertCurrent();
    nextLook.cancel();
    handlers.reset();
    screen.reset();
}

void X11Capture::fail(const std::string& description) {
    const auto ended = handlers;
    end();
    if (ended && ended->onStop) ended->onStop(CaptureError{description});
}

void X11Capture::look() {
    if (!handlers) return;
    const auto held = shared_from_this();  // a handler may let go of us
    try {
        lookNow();
    } catch (const X11Failure& failure) {
        fail(failure.what());
    }
}

void X11Capture::lookNow() {
    readEvents();
    if (screen->isLayoutOld || screen->goneSince) followLayout();
    if (screen->goneSince) {
        lookAt(*screen->goneSince + goneForGood);
        return lookAtNextEvent();
    }
    if (!screen->isDamaged && !(screen->pointer && screen->pointer->isTouched())) {
        if (isMoving && queue.now() < restDue) {
            lookAt(restDue);
        } else if (std::exchange(isMoving, false) &&
                   !deliver({ScreenSource::SampleStatus::idle, nullptr, std::nullopt})) {
            return;
        }
        return lookAtNextEvent();
    }
    const auto now = queue.now();
    if (now < pictureDue) return lookAt(pictureDue);
    // The damage waits with the server meanwhile.
    if (!screen->pool.hasFree()) return lookAt(now + interval);
    try {
        // What happens on other monitors wakes us too, and must not do so all the time.
        if (!takePicture()) lookAt(now + interval / 2);
    } catch (const X11Refusal&) {
        // The monitor may just have shrunk.
        if (++screen->refusals == tooManyRefusals) throw;
        screen->isLayoutOld = true;
        lookAt(now + interval);
    }
}

void X11Capture::lookAt(MonotonicTime time) {
    nextLook = queue.after(time - queue.now(), [weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->queue.assertCurrent();
            self->look();
        }
    });
}

void X11Capture::lookAtNextEvent() {
    // Waiting for an answer reads the events before it as well; the socket does not tell of them.
    while (
        const X11Message<xcb_generic_event_t> event{xcb_poll_for_queued_event(screen->x11.get())}) {
        handle(*event);
        lookAt(queue.now());
    }
    if (std::exchange(isWaiting, true)) return;
    screen->socket.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                              [weak = weak_from_this()](const boost::system::error_code& error) {
                                  const auto self = weak.lock();
                                  if (!self || error == boost::asio::error::operation_aborted)
                                      return;
                                  self->queue.assertCurrent();
                                  self->isWaiting = false;
                                  self->look();
                              });
}

void X11Capture::readEvents() {
    while (const auto event = screen->x11.pollEvent())
        handle(*event);
}

void X11Capture::handle(const xcb_generic_event_t& event) {
    const std::uint8_t type = event.response_type & 0x7F;
    if (type == 0) {
        throw X11Failure(
            "the X server refused a request, error " +
            std::to_string(reinterpret_cast<const xcb_generic_error_t&>(event).error_code));
    }
    if (screen->framebuffer->isDamage(event)) {
        screen->isDamaged = true;
    } else if (screen->monitorEvents.contain(type)) {
        screen->isLayoutOld = true;
    } else if (screen->pointer) {
        screen->pointer->handle(event);
    }
}

void X11Capture::followLayout() {
    screen->isLayoutOld = false;
    const auto area = screen->find(configuration.displayID);
    if (!area) {
        if (!screen->goneSince) screen->goneSince = queue.now();
        if (queue.now() - *screen->goneSince >= goneForGood)
            throw X11Failure("the display was removed");
        return;
    }
    screen->goneSince.reset();
    if (*area != screen->framebuffer->area() || screen->refusals > 0)
        screen->show(*area, configuration);
}

// False when nothing differs from the last one.
bool X11Capture::takePicture() {
    auto& framebuffer = *screen->framebuffer;
    auto& pointer = screen->pointer;
    std::vector<Rect> changed;
    if (pointer) pointer->beginLook();
    if (std::exchange(screen->isDamaged, false)) changed = framebuffer.update();
    screen->refusals = 0;
    if (pointer && pointer->finishLook()) {
        changed.push_back(screen->inFramebuffer(screen->pointerPlace));
        screen->pointerPlace = pointer->bounds();
        changed.push_back(screen->inFramebuffer(screen->pointerPlace));
    }

    ScreenSource::Sample sample{ScreenSource::SampleStatus::complete, nullptr, queue.now()};
    screen->changed.clear();
    {
        std::optional<X11Pointer::Drawn> drawn;
        if (pointer) drawn.emplace(*pointer, framebuffer);
        screen->scaler->update(framebuffer.pixels(), changed, screen->changed);
        if (screen->changed.isEmpty()) return false;
        sample.image =
            screen->pool.picture(screen->scaler->picture(), screen->changed, ++lastSequence);
    }

    // What comes at our own rate is taken when it comes, whatever its phase: no two pictures are
    // nearer than half an interval, and up to two that were missed may be made up for. A consumer
    // that is too slow for the pictures makes none pile up.
    paceDue = std::max(paceDue, *sample.time - 2 * interval) + interval;
    pictureDue = std::max(*sample.time + interval / 2, paceDue - interval / 2);
    restDue = *sample.time + 2 * interval;
    isMoving = true;
    if (deliver(sample)) lookAt(pictureDue);
    return true;
}

// False when the handler ended the capture.
bool X11Capture::deliver(const ScreenSource::Sample& sample) {
    const auto current = handlers;
    if (current->onSample) current->onSample(sample);
    return handlers != nullptr;
}

}  // namespace orvel
