#include "OrvelAgent/Platform/Linux/InputWorker.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "OrvelAgent/Platform/Linux/X11Input.h"
#include "OrvelKit/Base/QueueIo.h"

using namespace std::chrono_literals;

namespace orvel {

namespace {

// Between attempts to connect: they double. Whoever asks may have one sooner.
constexpr Duration firstPatience = 500ms, lastPatience = 8s, askingPatience = 1s;

// At the end.
constexpr Duration endTidyPatience = 100ms;

}  // namespace

struct InputWorker::Connection {
    Connection(boost::asio::io_context& io, const std::string& display)
        : input(display), socket(io) {
        boost::system::error_code error;
        socket.assign(input.descriptor(), error);
        if (error) throw X11Failure("the X server's socket cannot be waited for");
    }
    // The descriptor is the X connection's.
    ~Connection() {
        if (socket.is_open()) socket.release();
    }
    X11Input input;
    boost::asio::posix::stream_descriptor socket;
    bool isWaiting = false;
};

InputWorker::InputWorker(SerialQueue& inputQueue, std::string display)
    : queue(inputQueue), displayName(std::move(display)), patience(firstPatience) {}

InputWorker::~InputWorker() = default;

std::optional<EventPoster::Point> InputWorker::pointer() const {
    const std::lock_guard hold(mutex);
    return knownPointer;
}

std::optional<EventPoster::Area> InputWorker::display(
    std::optional<std::uint32_t> displayID) const {
    const std::lock_guard hold(mutex);
    const auto found = std::find_if(
        knownMonitors.begin(), knownMonitors.end(),
        [&](const X11Monitor& each) { return displayID ? each.id == *displayID : each.isMain; });
    if (found == knownMonitors.end()) return std::nullopt;
    const Rect& area = found->area;
    return EventPoster::Area{
        {double(area.x), double(area.y)}, double(area.width), double(area.height)};
}

void InputWorker::interrupt() {
    const std::lock_guard hold(mutex);
    isInterrupted = true;
    if (descriptor >= 0) shutdown(descriptor, SHUT_RDWR);
}

Timer InputWorker::after(Duration delay, Step step) {
    return queue.after(delay, [weak = weak_from_this(), step] {
        if (const auto self = weak.lock()) {
            self->queue.assertCurrent();
            self->attempt(step);
        }
    });
}

void InputWorker::attempt(Step step) {
    try {
        (this->*step)();
        followServer();
    } catch (const X11Failure&) {
        lose();
    }
}

void InputWorker::begin() {
    queue.assertCurrent();
    attempt(&InputWorker::connect);
}

void InputWorker::work() {
    queue.assertCurrent();
    attempt(&InputWorker::postEvents);
}

void InputWorker::refresh() {
    queue.assertCurrent();
    if (!nextLook.isPending()) attempt(connection ? &InputWorker::look : &InputWorker::connect);
}

void InputWorker::end(std::function<void()> done) {
    queue.assertCurrent();
    isEnding = true;
    onEnd = std::move(done);
    pending.clear();
    for (auto* timer : {&resume, &nextLook, &nextTidy, &reconnect})
        timer->cancel();
    if (!connection) return close();
    attempt(&InputWorker::finish);
}

void InputWorker::finish() {
    auto& input = connection->input;
    input.releaseAll();
    // Programs may still be reading what was typed last.
    if (const auto due = input.tidyDue()) {
        const auto enough = std::min(*due, queue.now() + endTidyPatience);
        if (queue.now() < enough) {
            input.flush();
            nextTidy = after(enough - queue.now(), &InputWorker::close);
            return;
        }
    }
    close();
}

void InputWorker::close() {
    try {
        if (connection) {
            connection->input.tidy();
            connection->input.finish();
        }
    } catch (const X11Failure&) {
        // Nothing is held on a server that has gone.
    }
    {
        const std::lock_guard hold(mutex);
        descriptor = -1;
    }
    connection.reset();
    if (const auto done = std::exchange(onEnd, nullptr)) done();
}

void InputWorker::connect() {
    if (isEnding || connection || (lastAttempt && queue.now() - *lastAttempt < firstPatience))
        return;
    lastAttempt = queue.now();
    reconnect.cancel();
    connection = std::make_shared<Connection>(ioContext(queue), displayName);
    patience = firstPatience;
    {
        const std::lock_guard hold(mutex);
        descriptor = connection->input.descriptor();
        if (isInterrupted) throw X11Failure("interrupted");
    }
    publish();
    nextLook = after(PointerWatch::interval, &InputWorker::look);
}

void InputWorker::lose() {
    {
        const std::lock_guard hold(mutex);
        descriptor = -1;
        knownPointer.reset();
        knownMonitors.clear();
    }
    connection.reset();
    pending.clear();
    backlog.take();
    for (auto* timer : {&resume, &nextLook, &nextTidy})
        timer->cancel();
    if (isEnding) return close();
    reconnect = after(patience, &InputWorker::connect);
    patience = std::min(2 * patience, lastPatience);
}

void InputWorker::postEvents() {
    if (resume.isPending() || isEnding) return;
    if (!connection) {
        backlog.take();
        if (!lastAttempt || queue.now() - *lastAttempt >= askingPatience) connect();
        return;
    }
    auto more = backlog.take();
    std::move(more.begin(), more.end(), std::back_inserter(pending));
    joinTexts();
    while (!pending.empty()) {
        if (const auto next = connection->input.post(pending.front(), queue.now())) {
            connection->input.flush();
            resume = after(*next - queue.now(), &InputWorker::postEvents);
            return;
        }
        pending.pop_front();
    }
    connection->input.flush();
    tidy();
}

// So that keys are lent to all of it at once.
void InputWorker::joinTexts() {
    auto* text = pending.empty() ? nullptr : std::get_if<InputEvent::Text>(&pending.front().what);
    while (text && pending.size() > 1) {
        const auto* more = std::get_if<InputEvent::Text>(&pending[1].what);
        if (!more) break;
        text->units += more->units;
        pending.erase(pending.begin() + 1);
    }
}

// Gives keys back that were lent to characters, some time after the last of them was typed.
void InputWorker::tidy() {
    nextTidy.cancel();
    const auto due = connection ? connection->input.tidyDue() : std::nullopt;
    if (!due) return;
    if (queue.now() < *due) {
        nextTidy = after(*due - queue.now(), &InputWorker::tidy);
    } else {
        connection->input.tidy();
        connection->input.flush();
    }
}

void InputWorker::look() {
    if (!connection) return;
    if (connection->input.look()) nextLook = after(PointerWatch::interval, &InputWorker::look);
}

// Whatever was just done may have read events along with its answers: of those the socket does not
// tell.
void InputWorker::followServer() {
    if (!connection || isEnding) return;
    for (auto news = connection->input.readEvents(); news.toLookAt || news.canTypeOn;
         news = connection->input.readEvents()) {
        if (news.toLookAt && !nextLook.isPending()) look();
        if (news.canTypeOn && resume.isPending()) {
            resume.cancel();
            postEvents();
        }
    }
    publish();
    if (std::exchange(connection->isWaiting, true)) return;
    connection->socket.async_wait(
        boost::asio::posix::stream_descriptor::wait_read,
        [weak = weak_from_this(), waiting = std::weak_ptr(connection)](const auto&) {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            const auto waited = waiting.lock();
            if (!waited || waited != self->connection) return;
            waited->isWaiting = false;
            self->attempt(&InputWorker::noteEvents);
        });
}

void InputWorker::publish() {
    const auto [x, y] = connection->input.pointer();
    const std::lock_guard hold(mutex);
    knownPointer = {double(x), double(y)};
    knownMonitors = connection->input.monitors();
}

}  // namespace orvel
