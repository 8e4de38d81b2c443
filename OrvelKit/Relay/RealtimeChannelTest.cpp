#include "OrvelKit/Relay/RealtimeChannel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvelKit/Relay/FakeWebSocket.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

std::string joinMessage(int ref) {
    const auto number = std::to_string(ref);
    return R"({"topic":"realtime:orvel-abc","event":"phx_join","ref":")" + number +
           R"(","join_ref":")" + number +
           R"(","payload":{"config":{"broadcast":{"self":false,"ack":false},)"
           R"("presence":{"key":""},"private":false},"access_token":"a key"}})";
}

std::string heartbeatMessage(int ref) {
    return R"({"topic":"phoenix","event":"heartbeat","ref":")" + std::to_string(ref) +
           R"(","payload":{}})";
}

std::string broadcastMessage(int ref, int joinRef, const std::string& payload) {
    return R"({"topic":"realtime:orvel-abc","event":"broadcast","ref":")" + std::to_string(ref) +
           R"(","join_ref":")" + std::to_string(joinRef) +
           R"(","payload":{"type":"broadcast","event":"signal","payload":)" + payload + "}}";
}

std::string reply(int ref, const std::string& payload = R"({"status":"ok","response":{}})") {
    return R"({"topic":"realtime:orvel-abc","event":"phx_reply","ref":")" + std::to_string(ref) +
           R"(","payload":)" + payload + "}";
}

// A channel whose relay the test plays, in virtual time.
struct RealtimeChannelTest : testing::Test {
    VirtualTime time;
    SerialQueue queue{"orvel.realtime", time};
    FakeWebSockets sockets;
    std::vector<bool> joins;
    std::vector<std::string> broadcasts;
    std::shared_ptr<RealtimeChannel> channel = RealtimeChannel::make(
        queue, sockets.maker(), RelayConfig(*Url::parse("ws://relay/socket?old=1"), "a key"),
        "orvel-abc");

    RealtimeChannelTest() {
        channel->onJoined = [this](bool joined) {
            EXPECT_TRUE(queue.isCurrent());
            joins.push_back(joined);
        };
        channel->onBroadcast = [this](const Bytes& payload) {
            EXPECT_TRUE(queue.isCurrent());
            broadcasts.emplace_back(textOf(payload));
        };
    }
    ~RealtimeChannelTest() override {
        channel.reset();
        time.runPending();
    }

    void start() {
        channel->start();
        time.runPending();
    }
    void say(const std::string& text, std::shared_ptr<FakeWebSockets::Peer> peer = nullptr) {
        if (!peer) peer = sockets.made.back();
        queue.post([peer, text] { peer->events.onMessage(text); });
        time.runPending();
    }
    void fail(std::shared_ptr<FakeWebSockets::Peer> peer = nullptr) {
        if (!peer) peer = sockets.made.back();
        queue.post([peer] { peer->events.onEnd("over"); });
        time.runPending();
    }
    void send(std::string_view json) {
        const auto bytes = bytesOf(json);
        channel->send(Bytes(bytes.begin(), bytes.end()));
        time.runPending();
    }
    // Answers the last join.
    void join() { say(reply(static_cast<int>(refOfLastJoin()))); }
    long refOfLastJoin() {
        const auto& text = sockets.last().sent.at(0);
        return std::stol(text.substr(text.find(R"("ref":")") + 7));
    }
};

TEST_F(RealtimeChannelTest, connectsJoinsAndBeats) {
    time.advance(1min);
    EXPECT_THAT(sockets.made, IsEmpty());
    start();
    EXPECT_EQ(sockets.last().url, "ws://relay/socket?apikey=a%20key&vsn=1.0.0");
    EXPECT_THAT(sockets.last().sent, ElementsAre(joinMessage(1)));
    EXPECT_THAT(joins, IsEmpty());
    time.advance(20s);
    join();
    EXPECT_THAT(joins, ElementsAre(true));
    time.advance(5s - 1ns);
    EXPECT_EQ(sockets.last().sent.size(), 1u);
    time.advance(1ns);
    EXPECT_THAT(sockets.last().sent, ElementsAre(joinMessage(1), heartbeatMessage(2)));
    say(R"({"topic":"phoenix","event":"phx_reply","ref":"2","payload":{"status":"ok"}})");
    time.advance(25s);
    EXPECT_THAT(sockets.last().sent,
                ElementsAre(joinMessage(1), heartbeatMessage(2), heartbeatMessage(3)));
    EXPECT_EQ(sockets.made.size(), 1u);

    start();  // a second time
    EXPECT_EQ(sockets.made.size(), 1u);
}

TEST_F(RealtimeChannelTest, whatIsSentEarlyWaitsForTheJoin) {
    send(R"({"n":1})");
    start();
    send(R"({"n":2})");
    send("no JSON");
    send("[]");
    send(R"({"n":3})");
    EXPECT_EQ(sockets.last().sent.size(), 1u);
    join();
    EXPECT_THAT(
        sockets.last().sent,
        ElementsAre(joinMessage(1), broadcastMessage(2, 1, R"({"n":1})"),
                    broadcastMessage(3, 1, R"({"n":2})"), broadcastMessage(4, 1, R"({"n":3})")));
    send("{");
    send(R"({"n":4})");
    EXPECT_EQ(sockets.last().sent.back(), broadcastMessage(5, 1, R"({"n":4})"));

    join();  // once more
    EXPECT_EQ(sockets.last().sent.size(), 5u);
    EXPECT_THAT(joins, ElementsAre(true));

    // Not again on the next connection, but what comes in between.
    fail();
    send(R"({"n":5})");
    time.advance(1s);
    join();
    EXPECT_THAT(sockets.last().sent,
                ElementsAre(joinMessage(6), broadcastMessage(7, 6, R"({"n":5})")));
}

TEST_F(RealtimeChannelTest, deliversBroadcastsAndOvercomesNonsense) {
    start();
    join();
    say(R"({"event":"broadcast","payload":{"type":"broadcast","event":"other","payload":{"a":1}}})");
    for (const auto* text :
         {"", "{", "[]", "null", "\xff", R"({"event":"broadcast"})",
          R"({"event":"broadcast","payload":{"event":"signal"}})",
          R"({"event":"broadcast","payload":{"payload":"text"}})", R"({"event":"presence_state"})",
          R"({"event":"system","payload":{"status":"error","message":"Too many messages"}})",
          R"({"event":"phx_reply","ref":null})",
          R"({"event":"phx_reply","ref":"2","payload":{"status":"error"}})"}) {
        say(text);
    }
    say(R"({"event":"broadcast","payload":{"payload":{"long":")" +
        std::string(RealtimeChannel::maxMessage, 'a') + R"("}}})");
    say(R"({"event":"broadcast","payload":{"payload":{"b":2}}})");
    EXPECT_THAT(broadcasts, ElementsAre(R"({"a":1})", R"({"b":2})"));
    EXPECT_THAT(joins, ElementsAre(true));
    EXPECT_EQ(sockets.made.size(), 1u);
}

TEST_F(RealtimeChannelTest, everyWayToEndLeadsToAnotherConnection) {
    const std::function<void()> ways[] = {
        [&] { fail(); },
        [&] { say(R"({"event":"phx_error","payload":{}})"); },
        [&] { say(R"({"event":"phx_close","ref":"1","payload":{}})"); },
        [&] { say(reply(static_cast<int>(refOfLastJoin()), R"({"status":"error"})")); },
        [&] { say(reply(static_cast<int>(refOfLastJoin()), "{}")); },
        [&] { say(R"({"event":"phx_reply","ref":")" + std::to_string(refOfLastJoin()) + "\"}"); },
        [&] { time.advance(90s); },  // silence
    };
    start();
    std::vector<bool> expected;
    for (std::size_t i = 0; i < std::size(ways); ++i) {
        SCOPED_TRACE(i);
        join();
        ways[i]();
        expected.insert(expected.end(), {true, false});
        EXPECT_EQ(joins, expected);
        EXPECT_TRUE(sockets.last().isGone);
        EXPECT_EQ(sockets.last().closeCode, std::nullopt);
        time.advance(1s - 1ns);
        EXPECT_EQ(sockets.made.size(), i + 1);
        time.advance(1ns);
        EXPECT_EQ(sockets.made.size(), i + 2);
    }
}

TEST_F(RealtimeChannelTest, waitsLongerAfterEachFailureUntilAJoin) {
    start();
    for (const auto wait : {1s, 2s, 4s, 8s, 16s, 30s, 30s}) {
        const auto count = sockets.made.size();
        fail();
        time.advance(wait - 1ns);
        EXPECT_EQ(sockets.made.size(), count) << wait.count();
        time.advance(1ns);
        EXPECT_EQ(sockets.made.size(), count + 1) << wait.count();
    }
    EXPECT_THAT(joins, IsEmpty());
    join();
    const auto count = sockets.made.size();
    fail();
    time.advance(1s);
    EXPECT_EQ(sockets.made.size(), count + 1);
}

TEST_F(RealtimeChannelTest, aJoinIsAnsweredInTimeOrTriedAgain) {
    start();
    time.advance(30s - 1ns);
    EXPECT_FALSE(sockets.last().isGone);
    time.advance(1ns);
    EXPECT_TRUE(sockets.last().isGone);
    time.advance(1s);
    EXPECT_EQ(sockets.made.size(), 2u);
    join();
    time.advance(40s);
    EXPECT_EQ(sockets.made.size(), 2u);
}

TEST_F(RealtimeChannelTest, whateverArrivesIsASignOfLife) {
    start();
    join();
    for (int i = 0; i < 5; ++i) {
        time.advance(89s);
        say("?");
    }
    EXPECT_EQ(sockets.made.size(), 1u);
    time.advance(90s);
    EXPECT_TRUE(sockets.made[0]->isGone);
}

TEST_F(RealtimeChannelTest, oldConnectionsAndOldJoinsMeanNothing) {
    start();
    const auto old = sockets.made.back();
    fail();
    time.advance(1s);
    say(reply(1));  // the old join's reference
    EXPECT_THAT(joins, IsEmpty());
    join();
    fail(old);
    say(reply(1), old);
    say(R"({"event":"phx_close"})", old);
    EXPECT_THAT(joins, ElementsAre(true));
    time.advance(25s);
    EXPECT_THAT(sockets.last().sent, ElementsAre(joinMessage(2), heartbeatMessage(3)));
    EXPECT_EQ(old->sent.size(), 1u);
}

TEST_F(RealtimeChannelTest, stopsFromAnywhereAndStartsAgain) {
    const auto stop = [&] {
        channel->stop();
        time.runPending();
        time.advance(10min);
    };
    stop();
    start();  // connecting
    stop();
    EXPECT_EQ(sockets.last().closeCode, 1001);
    EXPECT_THAT(joins, IsEmpty());

    start();  // joined
    join();
    stop();
    EXPECT_THAT(joins, ElementsAre(true, false));
    EXPECT_EQ(sockets.made.size(), 2u);

    start();  // waiting
    fail();
    stop();
    EXPECT_EQ(sockets.made.size(), 3u);
    EXPECT_THAT(joins, ElementsAre(true, false));

    start();
    fail();
    channel->stop();
    channel->start();  // does not wait
    time.runPending();
    EXPECT_EQ(sockets.made.size(), 5u);
    time.advance(10s);
    EXPECT_EQ(sockets.made.size(), 5u);
}

TEST_F(RealtimeChannelTest, releasedItEndsWithoutACallback) {
    start();
    join();
    const auto peer = sockets.made.back();
    channel.reset();
    time.runPending();
    EXPECT_TRUE(peer->isGone);
    say("{}", peer);
    time.advance(10min);
    EXPECT_EQ(sockets.made.size(), 1u);
    EXPECT_THAT(joins, ElementsAre(true));
}

TEST_F(RealtimeChannelTest, mayBeReleasedInsideItsCallback) {
    start();
    channel->onJoined = [this](bool) { channel.reset(); };
    send(R"({"n":1})");
    join();
    time.advance(10min);
    EXPECT_TRUE(sockets.made[0]->isGone);
}

}  // namespace
}  // namespace orvel
