#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OrvelAgent/Core/RemotePresence.h"
#include "OrvelAgent/Rtc/FakePeerConnection.h"
#include "OrvelKit/Relay/FakeWebSocket.h"

namespace orvel {

// The relay and the WebRTC library of an agent on fakes: the test plays the relay and the phones
// behind it. Sockets join as soon as they are made, unless `joins` is off.
class FakeRelay {
public:
    FakeRelay(VirtualTime& virtualTime, SerialQueue& agentQueue)
        : time(virtualTime), queue(agentQueue), realtime("orvel.realtime", virtualTime) {}

    std::optional<RelayConfig> config;  // absent: no relay is configured
    bool serversLate = false;           // ICE servers come with serversArrive()
    int prefetches = 0;
    std::vector<std::shared_ptr<FakePeerConnection>> peers;  // one for each session made

    RemotePresence::Parts parts() {
        return {[this] { return config; },
                [this](const RelayConfig& relay, const std::string& topic) {
                    topicName = topic;
                    return RealtimeChannel::make(realtime, sockets.maker(), relay, topic);
                },
                [this](IceServerProvider::ServersHandler handler) {
                    waiting.push_back(std::move(handler));
                    if (!serversLate) answerServers();
                },
                [this] { ++prefetches; },
                [this](const PeerConnection::Configuration& configuration, SerialQueue&) {
                    peers.push_back(std::make_shared<FakePeerConnection>());
                    peers.back()->configuration = configuration;
                    return peers.back();
                }};
    }

    void configure() {
        config.emplace(*Url::parse("wss://relay.example/realtime/v1/websocket"), "key");
    }
    // The relay answers the join that waits.
    void join() {
        const std::string& text = sockets.last().sent.front();
        const auto ref = text.substr(text.find("\"ref\":\"") + 7,
                                     text.find(R"(","join_ref")") - text.find("\"ref\":\"") - 7);
        say(R"({"event":"phx_reply","ref":")" + ref + R"(","payload":{"status":"ok"}})");
    }
    bool isLeft() const { return sockets.made.empty() || sockets.made.back()->isGone; }

    // Time passes in which the relay answers the heartbeats.
    void rest(Duration duration) {
        for (const Duration step = std::chrono::seconds(60); duration > Duration(0);
             duration -= step) {
            time.advance(std::min(duration, step));
            say(R"({"event":"phx_reply","payload":{"status":"ok"}})");
        }
    }

    void serversArrive() {
        answerServers();
        time.runPending();
    }

    // A phone broadcasts; the envelope, to be shown again.
    std::string broadcast(const Identity& phone, ByteView agentKey, const std::string& session,
                          const SignalMessage& message) {
        const auto json =
            SignalEnvelope::seal(message, phone, agentKey, session, queue.wallTime())->toJson();
        show(json);
        return json;
    }
    void show(const std::string& payload) {
        say(R"({"event":"broadcast","payload":{"event":"signal","payload":)" + payload + "}}");
    }

    // What the agent has broadcast since the last call, as this phone opens it.
    std::vector<SignalMessage> heardBy(const Identity& phone, const Bytes& agentKey) {
        std::vector<SignalMessage> heard;
        for (std::string& text : sockets.last().sent) {
            const auto message = RealtimeMessage::parse(text);
            if (!message || message->event != "broadcast") continue;
            const auto envelope = SignalEnvelope::fromJson(*message->innerPayload);
            if (envelope.to != phone.fingerprint()) continue;
            heard.push_back(envelope.open(
                phone, [&](const std::string&) { return agentKey; }, queue.wallTime()));
            text.clear();
        }
        return heard;
    }

private:
    void say(const std::string& text) {
        realtime.post([peer = sockets.made.back(), text] { peer->events.onMessage(text); });
        time.runPending();
    }
    void answerServers() {
        for (auto& handler : std::exchange(waiting, {}))
            handler({{{"stun:stun.example:3478"}, {}, {}}});
    }

    VirtualTime& time;
    SerialQueue& queue;
    SerialQueue realtime;
    FakeWebSockets sockets;
    std::string topicName;
    std::vector<IceServerProvider::ServersHandler> waiting;
};

}  // namespace orvel
