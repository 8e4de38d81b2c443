#include "OrvelKit/Relay/RealtimeChannel.h"

#include <algorithm>
#include <cstdio>

namespace orvel {

namespace {

constexpr std::uint16_t goingAway = 1001;  // RFC 6455, section 7.4.1

}  // namespace

std::shared_ptr<RealtimeChannel> RealtimeChannel::make(SerialQueue& queue,
                                                       WebSocketMaker makeSocket,
                                                       RelayConfig config,
                                                       const std::string& topicName) {
    return std::shared_ptr<RealtimeChannel>(
        new RealtimeChannel(queue, std::move(makeSocket), std::move(config), topicName));
}

// The last reference may go on any thread; the socket belongs to the queue.
RealtimeChannel::~RealtimeChannel() {
    if (socket && !queue.isCurrent()) queue.post([left = std::move(socket)] {});
}

RealtimeChannel::RealtimeChannel(SerialQueue& channelQueue, WebSocketMaker socketMaker,
                                 RelayConfig relayConfig, const std::string& topicName)
    : queue(channelQueue),
      makeSocket(std::move(socketMaker)),
      config(std::move(relayConfig)),
      topic("realtime:" + topicName) {}

Timer RealtimeChannel::later(Duration delay, void (RealtimeChannel::*step)()) {
    return queue.after(delay, [weak = weak_from_this(), step] {
        if (const auto self = weak.lock()) (self.get()->*step)();
    });
}

// What the socket that is made next tells of; nothing once another has taken its place.
std::function<void(std::string)> RealtimeChannel::fromSocket(
    void (RealtimeChannel::*step)(const std::string&)) {
    return [weak = weak_from_this(), number = socketNumber, step](const std::string& text) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        if (self->socket && self->socketNumber == number) (self.get()->*step)(text);
    };
}

void RealtimeChannel::start() {
    queue.post([self = shared_from_this()] {
        self->queue.assertCurrent();
        self->stopped = false;
        if (!self->socket) self->connect();
    });
}

void RealtimeChannel::stop() {
    queue.post([self = shared_from_this()] {
        self->queue.assertCurrent();
        self->stopped = true;
        self->reconnect.cancel();
        if (self->socket) self->socket->close(goingAway);
        self->leave();
    });
}

void RealtimeChannel::send(Bytes json) {
    queue.post([self = shared_from_this(), json = std::move(json)]() mutable {
        self->queue.assertCurrent();
        if (self->joined) {
            self->broadcast(json);
        } else {
            self->outbox.push_back(std::move(json));
        }
    });
}

void RealtimeChannel::connect() {
    ++socketNumber;
    socket = makeSocket(
        queue, config.url.withQuery({{"apikey", config.apiKey}, {"vsn", "1.0.0"}}),
        {fromSocket(&RealtimeChannel::handle), fromSocket(&RealtimeChannel::receiveFailed)});
    joinRef = std::to_string(++ref);
    socket->send(RealtimeMessage::join(topic, ref, config.apiKey));
    heartbeat = later(heartbeatTime, &RealtimeChannel::beat);
    joining = later(joinTime, &RealtimeChannel::joinOverdue);
    lastArrival = queue.now();
    listen();
}

// Forgets the connection; whether there will be another is the caller's business.
void RealtimeChannel::leave() {
    heartbeat.cancel();
    joining.cancel();
    silence.cancel();
    socket.reset();
    if (std::exchange(joined, false) && onJoined) onJoined(false);
}

void RealtimeChannel::disconnect() {
    leave();
    if (stopped) return;
    reconnect = later(backoff, &RealtimeChannel::connectAgain);
    backoff = std::min<Duration>(backoff * 2, maxBackoff);
}

void RealtimeChannel::connectAgain() {
    if (!stopped && !socket) connect();
}

void RealtimeChannel::failed(const std::string& what) {
    // Once: a computer without a network tries all day.
    if (lastFailure != what) {
        std::fprintf(stderr, "orvel realtime: %s\n", what.c_str());
        lastFailure = what;
    }
    disconnect();
}

void RealtimeChannel::receiveFailed(const std::string& reason) {
    failed("receive failed " + reason);
}

void RealtimeChannel::handle(const std::string& text) {
    lastArrival = queue.now();
    if (text.size() > maxMessage) return;
    const auto message = RealtimeMessage::parse(text);
    if (!message) return;
    if (message->event == "phx_reply") {
        if (message->ref == joinRef) joinAnswered(*message);
    } else if (message->event == "broadcast") {
        if (!message->innerPayload || !onBroadcast) return;
        const auto bytes = bytesOf(*message->innerPayload);
        onBroadcast(Bytes(bytes.begin(), bytes.end()));
    } else if (message->event == "phx_error" || message->event == "phx_close") {
        failed("the relay ended the channel");
    }
}

void RealtimeChannel::joinAnswered(const RealtimeMessage& reply) {
    if (reply.status != "ok") return failed("the relay refused the join");
    joining.cancel();
    backoff = firstBackoff;
    lastFailure.clear();
    if (!std::exchange(joined, true) && onJoined) onJoined(true);
    for (const auto& json : std::exchange(outbox, {}))
        broadcast(json);
}

void RealtimeChannel::broadcast(const Bytes& json) {
    const auto message = RealtimeMessage::broadcast(topic, ref + 1, joinRef, json);
    if (!message) return;
    ++ref;
    socket->send(*message);
}

void RealtimeChannel::beat() {
    heartbeat = later(heartbeatTime, &RealtimeChannel::beat);
    socket->send(RealtimeMessage::heartbeat(++ref));
}

void RealtimeChannel::joinOverdue() {
    failed("the join is not answered");
}

// Looks again when the present silence would be too long.
void RealtimeChannel::listen() {
    const Duration left = lastArrival + silenceTime - queue.now();
    if (left <= Duration::zero()) return failed("nothing arrives any more");
    silence = later(left, &RealtimeChannel::listen);
}

}  // namespace orvel
