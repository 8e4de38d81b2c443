#include "OrvelAgent/Platform/Linux/PulseLoop.h"

#include <poll.h>
#include <sys/time.h>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <chrono>
#include <memory>
#include <utility>

#include "OrvelKit/Base/QueueIo.h"

// libpulse only declares its three kinds of events: what they are is the loop's business. An event
// holds itself until libpulse frees it, which it may do inside the event's own callback; whatever
// waits in the queue holds it too, and then finds it freed.
namespace {

using boost::asio::posix::stream_descriptor;
using orvel::SerialQueue;

template <class Event, class Callback>
struct EventBase {
    EventBase(pa_mainloop_api* table, Callback function, void* data)
        : api(table),
          queue(*static_cast<SerialQueue*>(table->userdata)),
          callback(function),
          userdata(data) {}

    static void free(Event* event) {
        const auto held = std::exchange(event->self, nullptr);
        held->release();
        if (held->destroy) held->destroy(held->api, event, held->userdata);
    }
    static void setDestroy(Event* event, void (*function)(pa_mainloop_api*, Event*, void*)) {
        event->destroy = function;
    }
    bool isFreed() const { return !self; }

    pa_mainloop_api* const api;
    SerialQueue& queue;
    const Callback callback;
    void* const userdata;
    void (*destroy)(pa_mainloop_api*, Event*, void*) = nullptr;
    std::shared_ptr<Event> self;
};

template <class Event, class... Arguments>
Event* make(Arguments... arguments) {
    const auto event = std::make_shared<Event>(arguments...);
    event->self = event;
    return event.get();
}

}  // namespace

struct pa_io_event : EventBase<pa_io_event, pa_io_event_cb_t> {
    pa_io_event(pa_mainloop_api* table, int number, pa_io_event_cb_t function, void* data)
        : EventBase(table, function, data), descriptor(orvel::ioContext(queue)), fd(number) {
        boost::system::error_code error;
        descriptor.assign(fd, error);  // without it nothing comes, and libpulse's timeouts end that
    }
    ~pa_io_event() { release(); }

    // The descriptor stays libpulse's.
    void release() {
        if (descriptor.is_open()) descriptor.release();
    }

    void enable(pa_io_event_flags_t events) {
        wanted = events;
        wait(PA_IO_EVENT_INPUT, stream_descriptor::wait_read, waitsToRead);
        wait(PA_IO_EVENT_OUTPUT, stream_descriptor::wait_write, waitsToWrite);
    }

private:
    void wait(int direction, stream_descriptor::wait_type what, bool& waits) {
        if (!(wanted & direction) || waits || !descriptor.is_open()) return;
        waits = true;
        descriptor.async_wait(what, [event = self, &waits](const auto& error) {
            waits = false;
            if (!error) event->ready();
        });
    }

    // Says what is true now: between two events of one moment libpulse may have read or written.
    void ready() {
        if (isFreed()) return;
        const int asked =
            (wanted & PA_IO_EVENT_INPUT ? POLLIN : 0) | (wanted & PA_IO_EVENT_OUTPUT ? POLLOUT : 0);
        pollfd state{fd, static_cast<short>(asked), 0};
        poll(&state, 1, 0);
        const int events = (state.revents & POLLIN ? PA_IO_EVENT_INPUT : 0) |
                           (state.revents & POLLOUT ? PA_IO_EVENT_OUTPUT : 0) |
                           (state.revents & POLLHUP ? PA_IO_EVENT_HANGUP : 0) |
                           (state.revents & POLLERR ? PA_IO_EVENT_ERROR : 0);
        if (events) callback(api, this, fd, static_cast<pa_io_event_flags_t>(events), userdata);
        if (!isFreed()) enable(wanted);
    }

    stream_descriptor descriptor;
    const int fd;
    pa_io_event_flags_t wanted = PA_IO_EVENT_NULL;
    bool waitsToRead = false, waitsToWrite = false;
};

struct pa_time_event : EventBase<pa_time_event, pa_time_event_cb_t> {
    using EventBase::EventBase;

    void release() { timer.cancel(); }

    // `at` is by the wall clock, which libpulse uses with loops that are not its own.
    void restart(const timeval* at) {
        if (!at) return timer.cancel();
        const auto due = std::chrono::seconds(at->tv_sec) + std::chrono::microseconds(at->tv_usec);
        timer = queue.after(due - queue.wallTime().time_since_epoch(), [event = self, when = *at] {
            if (event->isFreed()) return;
            event->callback(event->api, event.get(), &when, event->userdata);
        });
    }

private:
    orvel::Timer timer;
};

// Comes again and again while it is enabled.
struct pa_defer_event : EventBase<pa_defer_event, pa_defer_event_cb_t> {
    using EventBase::EventBase;

    void release() {}

    void enable(bool nowEnabled) {
        isEnabled = nowEnabled;
        if (!isEnabled || isPosted) return;
        isPosted = true;
        queue.post([event = self] {
            event->isPosted = false;
            if (event->isFreed() || !event->isEnabled) return;
            event->callback(event->api, event.get(), event->userdata);
            if (!event->isFreed()) event->enable(event->isEnabled);
        });
    }

private:
    bool isEnabled = false, isPosted = false;
};

namespace orvel {

PulseLoop::PulseLoop(SerialQueue& queue)
    : table{
          .userdata = &queue,
          .io_new =
              [](pa_mainloop_api* api, int fd, pa_io_event_flags_t events,
                 pa_io_event_cb_t callback, void* data) {
                  auto* const event = make<pa_io_event>(api, fd, callback, data);
                  event->enable(events);
                  return event;
              },
          .io_enable = [](pa_io_event* event,
                          pa_io_event_flags_t events) { event->enable(events); },
          .io_free = pa_io_event::free,
          .io_set_destroy = pa_io_event::setDestroy,
          .time_new =
              [](pa_mainloop_api* api, const timeval* at, pa_time_event_cb_t callback, void* data) {
                  auto* const event = make<pa_time_event>(api, callback, data);
                  event->restart(at);
                  return event;
              },
          .time_restart = [](pa_time_event* event, const timeval* at) { event->restart(at); },
          .time_free = pa_time_event::free,
          .time_set_destroy = pa_time_event::setDestroy,
          .defer_new =
              [](pa_mainloop_api* api, pa_defer_event_cb_t callback, void* data) {
                  auto* const event = make<pa_defer_event>(api, callback, data);
                  event->enable(true);
                  return event;
              },
          .defer_enable = [](pa_defer_event* event, int enabled) { event->enable(enabled != 0); },
          .defer_free = pa_defer_event::free,
          .defer_set_destroy = pa_defer_event::setDestroy,
          .quit = [](pa_mainloop_api*, int) {}} {}

}  // namespace orvel
