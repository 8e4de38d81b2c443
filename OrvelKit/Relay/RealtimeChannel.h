#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/RealtimeMessage.h"
#include "OrvelKit/Relay/RelayConfig.h"
#include "OrvelKit/Relay/WebSocket.h"

namespace orvel {

// One subscription to a topic of the relay's realtime service: broadcasts a JSON object to
// everybody else on the topic, and tells of every broadcast there. Does not look into what it
// carries.
//
//   stopped -> connecting -> joined; from the last two, when anything fails, to waiting for the
//   next connection; stop() leads back to stopped from anywhere.
//
// It connects again by itself, 1, 2, 4, 8, 16, then 30 seconds after each failure; a join that
// succeeds begins that anew. At most once and unordered between senders: what the relay loses is
// lost.
//
// Everything happens on its queue, "orvel.realtime". The public functions may be called from any
// thread and take effect there, in order. Releasing it ends all without a callback.
class RealtimeChannel : public std::enable_shared_from_this<RealtimeChannel> {
public:
    static constexpr std::chrono::seconds heartbeatTime{25};
    static constexpr std::chrono::seconds firstBackoff{1}, maxBackoff{30};
    // The service may need 20 s for a join, in which it answers nothing.
    static constexpr std::chrono::seconds joinTime{30};
    // A connection on which nothing arrives for so long has failed: heartbeats are answered.
    static constexpr std::chrono::seconds silenceTime{90};
    // Longer messages are not read. No envelope is nearly as long.
    static constexpr std::size_t maxMessage = 512 << 10;

    static std::shared_ptr<RealtimeChannel> make(SerialQueue& queue, WebSocketMaker makeSocket,
                                                 RelayConfig config, const std::string& topicName);
    ~RealtimeChannel();
    RealtimeChannel(const RealtimeChannel&) = delete;
    RealtimeChannel& operator=(const RealtimeChannel&) = delete;

    // Installed before start(); called on the queue.
    std::function<void(Bytes payload)> onBroadcast;  // a JSON object
    std::function<void(bool joined)> onJoined;       // exactly the changes

    void start();
    void stop();
    // `json` is a JSON object's text, else it is dropped. It waits for a join when there is none;
    // what was sent on a connection that then fails is not sent again.
    void send(Bytes json);

private:
    RealtimeChannel(SerialQueue& queue, WebSocketMaker makeSocket, RelayConfig config,
                    const std::string& topicName);
    void connect() RUNS_ON(queue);
    void disconnect() RUNS_ON(queue);
    void leave() RUNS_ON(queue);
    void failed(const std::string& what) RUNS_ON(queue);
    void receiveFailed(const std::string& reason) RUNS_ON(queue);
    void handle(const std::string& text) RUNS_ON(queue);
    void joinAnswered(const RealtimeMessage& reply) RUNS_ON(queue);
    void broadcast(const Bytes& json) RUNS_ON(queue);
    void beat() RUNS_ON(queue);
    void joinOverdue() RUNS_ON(queue);
    void listen() RUNS_ON(queue);
    void connectAgain() RUNS_ON(queue);
    Timer later(Duration delay, void (RealtimeChannel::*step)());
    std::function<void(std::string)> fromSocket(void (RealtimeChannel::*step)(const std::string&))
        RUNS_ON(queue);

    SerialQueue& queue;
    const WebSocketMaker makeSocket;
    const RelayConfig config;
    const std::string topic;

    std::unique_ptr<WebSocket> socket OWNED_BY(queue);
    std::uint64_t socketNumber OWNED_BY(queue) = 0;  // tells the events of old sockets apart
    std::int64_t ref OWNED_BY(queue) = 0;            // of the last message; never reset
    std::string joinRef OWNED_BY(queue);             // of the last join
    bool joined OWNED_BY(queue) = false;
    bool stopped OWNED_BY(queue) = true;
    Duration backoff OWNED_BY(queue) = firstBackoff;
    std::vector<Bytes> outbox OWNED_BY(queue);  // waiting for a join
    MonotonicTime lastArrival OWNED_BY(queue);
    std::string lastFailure OWNED_BY(queue);  // as logged since the last join
    Timer heartbeat OWNED_BY(queue), joining OWNED_BY(queue), silence OWNED_BY(queue),
        reconnect OWNED_BY(queue);
};

}  // namespace orvel
