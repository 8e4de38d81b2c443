#include "OrvelAgent/Platform/Linux/LinuxEventPoster.h"

#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include "OrvelAgent/Platform/Linux/InputWorker.h"

using namespace std::chrono_literals;

namespace orvel {

namespace {

constexpr Duration releaseLimit = 1s, interruptLimit = 250ms;

// The Command keys, which may be sent without the flag.
bool isCommand(std::uint16_t code) {
    return code == 54 || code == 55;
}

}  // namespace

std::unique_ptr<EventPoster> EventPoster::create(Defaults& defaults) {
    return std::make_unique<LinuxEventPoster>(defaults);
}

LinuxEventPoster::LinuxEventPoster(Defaults& userDefaults, std::string display)
    : defaults(userDefaults),
      queue(std::make_unique<SerialQueue>("orvel.input")),
      worker(std::make_shared<InputWorker>(*queue, std::move(display))),
      lastRefresh(queue->now()) {
    queue->post([worker = worker] { worker->begin(); });
}

LinuxEventPoster::~LinuxEventPoster() {
    auto ended = std::make_shared<std::promise<void>>();
    const auto isOver = ended->get_future();
    queue->post([worker = worker, ended] { worker->end([ended] { ended->set_value(); }); });
    if (isOver.wait_for(releaseLimit) == std::future_status::ready) return;
    worker->interrupt();
    if (isOver.wait_for(interruptLimit) == std::future_status::ready) return;
    // It waits for a server that has accepted the connection and says nothing: nobody can end that.
    std::thread([abandoned = std::move(queue), held = std::move(worker)]() mutable {
        abandoned.reset();
        held.reset();
    }).detach();
}

void LinuxEventPoster::post(InputEvent event) {
    if (worker->backlog.add(std::move(event))) {
        queue->post([worker = worker] { worker->work(); });
    }
}

void LinuxEventPoster::postMotion(Motion, Point to, std::int64_t, std::int64_t) {
    // The server knows which buttons are down, and makes the deltas itself.
    post({InputEvent::Motion{to}});
}

void LinuxEventPoster::postButton(MouseButton button, bool down, Point at, std::int64_t) {
    // Programs count the clicks.
    post({InputEvent::Button{button, down, at}});
}

void LinuxEventPoster::postScroll(std::int32_t dx, std::int32_t dy, ScrollPhase phase) {
    post({InputEvent::Scroll{dx, dy, phase}});
}

void LinuxEventPoster::postKey(std::uint16_t code, bool down, std::optional<std::uint32_t> flags) {
    const bool isSuper = (isCommand(code) || (flags.value_or(0) & commandFlag)) &&
                         defaults.string("commandKey") == "super";
    post({InputEvent::Key{code, down, flags, isSuper}});
}

void LinuxEventPoster::postText(std::u16string_view units) {
    if (!units.empty()) post({InputEvent::Text{std::u16string(units)}});
}

void LinuxEventPoster::releaseAll() {
    post({InputEvent::ReleaseAll{}});
}

// The answers are those of before; the next ones will be good.
void LinuxEventPoster::refresh() {
    if (queue->now() - lastRefresh < 100ms) return;
    lastRefresh = queue->now();
    queue->post([worker = worker] { worker->refresh(); });
}

std::optional<EventPoster::Point> LinuxEventPoster::pointerLocation() {
    refresh();
    return worker->pointer();
}

std::optional<EventPoster::Area> LinuxEventPoster::displayBounds(
    std::optional<std::uint32_t> displayID) {
    const auto bounds = worker->display(displayID);
    if (!bounds) refresh();
    return bounds;
}

}  // namespace orvel
