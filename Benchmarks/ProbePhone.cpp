#include "Benchmarks/ProbePhone.h"

#include <chrono>
#include <stdexcept>

#include "Phone/PhoneState.h"

namespace orvel::phone {

using namespace std::chrono_literals;

namespace {

double milliseconds(Duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

ProbePhone::ProbePhone(const std::string& stateFolder, const std::string& host, std::uint16_t port)
    : connection(PhoneState(stateFolder).identity()) {
    if (!connection.connect(host, port) || !connection.secure()) {
        throw std::runtime_error(connection.closed()->describe());
    }
    connection.send({connection.hello("Probe")});
    if (!connection.waitFor<Welcome>(30s)) throw std::runtime_error("the phone is not admitted");
    listener = std::thread([this] { listen(); });
}

ProbePhone::~ProbePhone() {
    {
        const std::lock_guard hold(mutex);
        ending = true;
    }
    connection.close();
    listener.join();
}

void ProbePhone::listen() {
    for (;;) {
        const auto event = connection.next(1s);
        if (event) take(*event);
        const std::lock_guard hold(mutex);
        if (ending) return;
        if (!event && connection.closed()) {
            problem = connection.closed()->describe();
            changed.notify_all();
            return;
        }
    }
}

void ProbePhone::take(const PhoneConnection::Event& event) {
    const std::lock_guard hold(mutex);
    if (const auto* answer = event.as<Control::Pong>()) {
        pong = *answer;
        pongAt = event.arrivedAt;
        changed.notify_all();
    } else if (const auto* frame = event.as<VideoFrame>()) {
        // A still picture that is sent again carries its old time: that is no delay.
        if (frame->ptsMicros <= newestPts) return;
        newestPts = frame->ptsMicros;
        const MonotonicTime taken{std::chrono::microseconds(frame->ptsMicros)};
        seen.videoAges.push_back(milliseconds(event.arrivedAt - taken));
    } else if (const auto* file = event.as<FileFrame>()) {
        if (const auto* data = std::get_if<FileFrame::Data>(&file->step)) {
            seen.fileBytes += data->bytes.size();
        } else if (const auto* end = std::get_if<FileFrame::End>(&file->step)) {
            if (fetched.empty()) {
                isFetching = false;
                changed.notify_all();
            } else if (end->error) {
                problem = *end->error;
                changed.notify_all();
            } else {
                connection.send({Control::FetchFile{++fetchID, fetched}});
            }
        }
    }
}

double ProbePhone::ping() {
    std::unique_lock hold(mutex);
    pong.reset();
    const std::uint64_t value = ++lastPing;
    const MonotonicTime sentAt = std::chrono::steady_clock::now();
    connection.send({Control::Ping{value}});
    const bool answered = changed.wait_for(
        hold, 10s, [&] { return (pong && pong->value == value) || !problem.empty(); });
    if (!problem.empty()) throw std::runtime_error(problem);
    if (!answered) throw std::runtime_error("a ping was not answered");
    return milliseconds(pongAt - sentAt);
}

void ProbePhone::startFetching(const std::string& path) {
    const std::lock_guard hold(mutex);
    fetched = path;
    isFetching = true;
    connection.send({Control::FetchFile{++fetchID, path}});
}

void ProbePhone::stopFetching() {
    std::unique_lock hold(mutex);
    fetched.clear();
    connection.send({Control::CancelFetch{fetchID}});
    if (!changed.wait_for(hold, 10s, [&] { return !isFetching; })) {
        throw std::runtime_error("a cancelled file does not end");
    }
}

ProbePhone::Seen ProbePhone::takeSeen() {
    const std::lock_guard hold(mutex);
    return std::exchange(seen, {});
}

}  // namespace orvel::phone
