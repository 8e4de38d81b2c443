#include "OrvelAgent/Core/RTCPhoneSession.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Rtc/FakePeerConnection.h"
#include "OrvelKit/Wire/Files.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Channel = PeerConnection::Channel;
using Form = PeerConnection::Form;
using State = PeerConnection::State;

class RTCPhoneSessionTest : public testing::Test {
protected:
    RTCPhoneSessionTest() : queue("orvel.agent", time) {
        onQueue([this] {
            const auto make = [this](const auto& configuration, SerialQueue&) {
                peer = std::make_shared<FakePeerConnection>();
                peer->configuration = configuration;
                return peer;
            };
            session = std::make_shared<RTCPhoneSession>(queue, make, "aaaaaaaaaaaaaaaa", "talk",
                                                        PeerConnection::Configuration{{}, true});
            session->onSignal = [this](SignalMessage message) { signals.push_back(message); };
            session->onControl = [this](const Control& control) { heard.push_back(control); };
            session->onEnd = [this] {
                ++ends;
                session.reset();  // as an owner does
            };
            session->accept("offer");
        });
    }
    void onQueue(std::function<void()> action) {
        queue.post(std::move(action));
        time.runPending();
    }
    void open() {
        onQueue([this] { peer->openAll(); });
    }
    void hear(std::string_view message) {
        const auto bytes = bytesOf(message);
        onQueue([&] { peer->onMessage(Bytes(bytes.begin(), bytes.end())); });
    }
    template <class Read>
    auto onQueueValue(Read read) {
        decltype(read()) value{};
        onQueue([&] { value = read(); });
        return value;
    }
    std::size_t sentOn(Channel channel) { return peer->textsOn(channel).size(); }

    VirtualTime time;
    SerialQueue queue;
    std::shared_ptr<FakePeerConnection> peer;
    std::shared_ptr<RTCPhoneSession> session;
    std::vector<SignalMessage> signals;
    std::vector<Control> heard;
    int ends = 0;
};

TEST_F(RTCPhoneSessionTest, theAnswerLeavesBeforeTheCandidatesThatWereFoundEarlier) {
    const IceCandidate early{"candidate:1", "0", 0}, late{"candidate:2", {}, 0};
    onQueue([&] {
        peer->onCandidate(early);
        EXPECT_TRUE(signals.empty());
        peer->onAnswer("answer");
        peer->onCandidate(late);
        session->accept("another offer");
        session->add(late);
    });
    EXPECT_EQ(signals, (std::vector<SignalMessage>{{SignalMessage::Answer{"answer"}},
                                                   {SignalMessage::Candidate{early}},
                                                   {SignalMessage::Candidate{late}}}));
    EXPECT_EQ(peer->offers, std::vector<std::string>{"offer"});
    EXPECT_EQ(peer->candidates, std::vector<IceCandidate>{late});
    EXPECT_TRUE(peer->configuration.relayOnly);
}

TEST_F(RTCPhoneSessionTest, hearsControlsAndDropsEverythingElse) {
    open();
    hear(Control{Control::Ping{7}}.toJson());
    hear("");
    hear("{");
    hear("{\"ping\":{}}");
    hear("[1]");
    hear(std::string_view("\0\xFF", 2));
    hear(std::string(PeerConnection::maxMessageBytes + 1, ' '));
    hear(Control{Control::Ping{8}}.toJson());
    EXPECT_EQ(heard, (std::vector<Control>{{Control::Ping{7}}, {Control::Ping{8}}}));
    EXPECT_EQ(ends, 0);
}

TEST_F(RTCPhoneSessionTest, controlsAreTextAndGoNowhereBeforeTheirChannelIsOpen) {
    const Control pong{Control::Pong{1}};
    onQueue([&] { session->sendControl(pong); });
    EXPECT_TRUE(peer->sent.empty());
    open();
    onQueue([&] { session->sendControl(pong); });
    ASSERT_EQ(peer->textsOn(Channel::control), std::vector<std::string>{pong.toJson()});
    EXPECT_EQ(peer->sent[0].form, Form::text);
}

TEST_F(RTCPhoneSessionTest, aControlThatNoChannelCarriesIsLeftOut) {
    open();
    const auto clipboardOf = [](std::size_t bytes) {
        const auto frame = Control{Control::Clipboard{""}}.toJson().size();
        return Control{Control::Clipboard{std::string(bytes - frame, 'x')}};
    };
    onQueue([&] {
        session->sendControl(clipboardOf(PeerConnection::maxMessageBytes + 1));
        EXPECT_EQ(sentOn(Channel::control), 0u);
        session->sendControl(clipboardOf(PeerConnection::maxMessageBytes));
        EXPECT_EQ(sentOn(Channel::control), 1u);
    });
    EXPECT_EQ(ends, 0);
}

TEST_F(RTCPhoneSessionTest, aPhoneThatDoesNotReadItsAnswersIsLetGo) {
    open();
    onQueue([&] {
        peer->buffered[0] = RTCPhoneSession::maxControlBacklog;
        session->sendControl({Control::Pong{1}});
        EXPECT_EQ(ends, 0) << "not while its caller uses it";
    });
    EXPECT_EQ(ends, 1);
}

TEST_F(RTCPhoneSessionTest, soundIsDroppedWhileMuchOfItWaits) {
    const AudioPacket packet{5, Bytes(200, 1)};
    onQueue([&] { session->sendAudio(packet); });
    EXPECT_EQ(sentOn(Channel::audio), 0u) << "not open";
    open();
    onQueue([&] {
        peer->buffered[2] = RTCPhoneSession::audioCeiling;
        session->sendAudio(packet);
        EXPECT_EQ(sentOn(Channel::audio), 0u);
        peer->buffered[2] = RTCPhoneSession::audioCeiling - 1;
        session->sendAudio(packet);
    });
    ASSERT_EQ(sentOn(Channel::audio), 1u);
    EXPECT_EQ(AudioPacket::decode(peer->sent[0].message), packet);
    EXPECT_EQ(peer->sent[0].form, Form::binary);
}

TEST_F(RTCPhoneSessionTest, fileDataWaitsHereAndGoesInShortMessages) {
    Bytes content(150'000);
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<std::uint8_t>(i * 7);
    std::vector<int> completed;
    const auto backlog = [&] { return session->fileBacklog(); };
    onQueue([&] {
        session->sendFile(FileFrame{9, FileFrame::Start{"a", 150'000}}.encode(),
                          [&] { completed.push_back(1); });
        session->sendFile(FileFrame{9, FileFrame::Data{content}}.encode(),
                          [&] { completed.push_back(2); });
        session->sendFile(FileFrame{9, FileFrame::End{}}.encode(), {});
        EXPECT_TRUE(peer->sent.empty()) << "the channel is not open";
        EXPECT_GT(backlog(), 150'000);
    });
    open();
    EXPECT_EQ(completed, std::vector<int>{1});
    EXPECT_LE(peer->buffered[1], RTCPhoneSession::filesAhead + 16 * 1024);
    const auto all = onQueueValue(backlog);
    onQueue([&] { peer->drain(Channel::files, peer->buffered[1] - 1000); });
    EXPECT_LT(onQueueValue(backlog), all);
    for (int i = 0; i < 20; ++i)
        onQueue([&] { peer->drain(Channel::files); });
    EXPECT_EQ(onQueueValue(backlog), 0);
    EXPECT_EQ(completed, (std::vector<int>{1, 2}));

    Bytes arrived;
    std::string kinds;
    for (const auto& message : peer->sent) {
        EXPECT_LE(message.message.size(), RTCPhoneSession::fileMessageBytes);
        EXPECT_EQ(message.form, Form::binary);
        const auto frame = FileFrame::decode(message.message);
        EXPECT_EQ(frame.id, 9u);
        kinds += "sde"[frame.step.index()];
        if (const auto* data = std::get_if<FileFrame::Data>(&frame.step)) {
            append(arrived, data->bytes);
        }
    }
    EXPECT_EQ(arrived, content);
    EXPECT_EQ(kinds, "s" + std::string(10, 'd') + "e");
}

struct EndRow {
    const char* name;
    std::function<void(FakePeerConnection&)> happens;
    Duration after;  // when the session ends; negative: it lives
};
const EndRow endRows[] = {
    {"an offer that cannot be used", [](auto& peer) { peer.onRefusal(); }, 0s},
    {"a failure", [](auto& peer) { peer.onState(State::failed); }, 0s},
    {"the control channel closed", [](auto& peer) { peer.onChannel(Channel::control, false); }, 0s},
    {"another channel closed", [](auto& peer) { peer.onChannel(Channel::files, false); }, -1s},
    {"no connection for ten seconds", [](auto& peer) { peer.onState(State::disconnected); }, 10s},
    {"a connection that comes back",
     [](auto& peer) {
         peer.onState(State::disconnected);
         peer.onState(State::connected);
     },
     -1s},
    {"one that comes back and goes again",
     [](auto& peer) {
         peer.onState(State::disconnected);
         peer.onState(State::connected);
         peer.onState(State::disconnected);
     },
     10s},
    {"a failure during the ten seconds",
     [](auto& peer) {
         peer.onState(State::disconnected);
         peer.onState(State::failed);
         peer.onState(State::failed);
     },
     0s},
};

class RTCPhoneSessionEndTest : public RTCPhoneSessionTest,
                               public testing::WithParamInterface<EndRow> {};
INSTANTIATE_TEST_SUITE_P(, RTCPhoneSessionEndTest, testing::ValuesIn(endRows));
void PrintTo(const EndRow& row, std::ostream* to) {
    *to << row.name;
}

TEST_P(RTCPhoneSessionEndTest, endsOnceWhenItShould) {
    open();
    onQueue([this] { GetParam().happens(*peer); });
    const auto after = GetParam().after;
    if (after > 0s) {
        time.advance(after - 1ms);
        EXPECT_EQ(ends, 0);
        time.advance(1ms);
    }
    EXPECT_EQ(ends, after < 0s ? 0 : 1);
    time.advance(1min);
    EXPECT_EQ(ends, after < 0s ? 0 : 1);
    EXPECT_EQ(peer->closes, ends);
}

TEST_F(RTCPhoneSessionTest, aRejectionGetsHalfASecondToLeave) {
    open();
    onQueue([this] {
        session->reject(Rejection::wrongPin);
        session->reject(Rejection::wrongPin);
    });
    EXPECT_EQ(peer->textsOn(Channel::control),
              std::vector<std::string>{Control{Control::Rejected{Rejection::wrongPin}}.toJson()});
    hear(Control{Control::Ping{7}}.toJson());
    EXPECT_TRUE(heard.empty());
    time.advance(499ms);
    EXPECT_EQ(ends, 0);
    time.advance(1ms);
    EXPECT_EQ(ends, 1);
}

TEST_F(RTCPhoneSessionTest, afterItsEndNothingHappensAnyMore) {
    open();
    const auto kept = session;
    onQueue([&] {
        kept->close();
        kept->close();
        kept->sendControl({Control::Pong{1}});
        kept->sendAudio({1, Bytes(10)});
        kept->sendFile(FileFrame{9, FileFrame::End{}}.encode(), [] { FAIL(); });
        kept->reject(Rejection::wrongPin);
        kept->add({});
        kept->accept("offer");
        peer->onAnswer("answer");
        peer->onState(State::disconnected);
        peer->onMessage(Bytes{'{', '}'});
    });
    time.advance(1min);
    EXPECT_EQ(ends, 1);
    EXPECT_TRUE(peer->sent.empty());
    EXPECT_TRUE(signals.empty());
    EXPECT_EQ(peer->offers.size(), 1u);
}

}  // namespace
}  // namespace orvel
