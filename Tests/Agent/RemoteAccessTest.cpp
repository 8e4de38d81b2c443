// The way in from the internet: the policy, the relay, sessions that phones offer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Agent/FakeAgent.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

const SignalMessage standby{SignalMessage::Standby{"Test Computer"}};
const SignalMessage here{SignalMessage::Here{"Test Computer", false}};
const SignalMessage busy{SignalMessage::Here{"Test Computer", true}};

class RemoteAccessTest : public testing::Test {
protected:
    // An agent that is on its relay, with a paired phone of a name.
    void start(const char* mode = nullptr) {
        if (mode) agent.defaults.set("remoteAccess", mode);
        agent.defaults.set("deviceNames",
                           std::map<std::string, std::string>{{phone.fingerprint(), "Cep"}});
        agent.relay.configure();
        agent.start();
        if (agent.relay.isLeft()) return;
        agent.relay.join();
        agent.takeNews();
    }
    Bytes agentKey() const { return agent.core->identity.publicKey(); }

    std::string say(const SignalMessage& message, const std::string& session = "s1") {
        return agent.relay.broadcast(phone, agentKey(), session, message);
    }
    std::vector<SignalMessage> heard() { return agent.relay.heardBy(phone, agentKey()); }
    std::vector<SignalMessage> answersTo(const SignalMessage& message,
                                         const std::string& session = "s1") {
        say(message, session);
        return heard();
    }
    SignalMessage unlockedUntil(Duration fromNow) {
        const auto until = std::chrono::duration_cast<std::chrono::seconds>(
            (agent.queue.wallTime() + fromNow).time_since_epoch());
        return {SignalMessage::Unlocked{static_cast<double>(until.count())}};
    }

    // A session whose channels are open.
    std::shared_ptr<FakePeerConnection> connected(const std::string& session = "s1") {
        const std::size_t before = agent.relay.peers.size();
        say({SignalMessage::Offer{"v=0"}}, session);
        if (agent.relay.peers.size() == before) return nullptr;
        auto peer = agent.relay.peers.back();
        onQueue([&] { peer->openAll(); });
        return peer;
    }
    void send(FakePeerConnection& peer, const Control& control) {
        const auto json = control.toJson();
        onQueue([&] { peer.onMessage(Bytes(json.begin(), json.end())); });
    }
    Hello hello() const {
        Hello hello;
        hello.deviceID = phone.fingerprint();
        hello.deviceName = "Cep";
        return hello;
    }
    std::shared_ptr<FakePeerConnection> admitted(const std::string& session = "s1") {
        auto peer = connected(session);
        if (peer) send(*peer, {hello()});
        return peer;
    }
    static std::vector<Control> controls(FakePeerConnection& peer) {
        std::vector<Control> result;
        for (const std::string& text : peer.textsOn(PeerConnection::Channel::control))
            result.push_back(Control::fromJson(text));
        peer.sent.clear();
        return result;
    }
    template <class Action>
    void onQueue(Action action) {
        agent.queue.post([&] { action(); });
        agent.time.runPending();
    }

    FakeAgent agent;
    const Identity phone = agent.pairedIdentity();
};

TEST_F(RemoteAccessTest, aFreshInstallationIsOnTheRelayAndAnswersPairedPhonesOnly) {
    start();
    EXPECT_EQ(agent.relay.prefetches, 1);
    EXPECT_THAT(answersTo({SignalMessage::Probe{}}), ElementsAre(here));
    const Identity stranger{PrivateKey::generate()};
    agent.relay.broadcast(stranger, agentKey(), "s", {SignalMessage::Probe{}});
    agent.relay.show(R"({"nonsense":true})");
    const std::string old = say({SignalMessage::Probe{}});
    heard();
    agent.relay.rest(121s);
    agent.relay.show(old);
    EXPECT_THAT(heard(), IsEmpty());
    // An unlock is not needed, and not told of.
    EXPECT_THAT(answersTo({SignalMessage::Unlock{}}), ElementsAre(here));
    TestPhone local = agent.admittedPhone();
    EXPECT_THAT(answersTo({SignalMessage::Probe{}}), ElementsAre(busy));
    EXPECT_THAT(agent.takeNews(), testing::Not(testing::Contains(testing::HasSubstr("unlock"))));
}

TEST_F(RemoteAccessTest, offLeavesTheRelayAndEndsEverySessionOnComesBack) {
    start();
    auto peer = admitted();
    ASSERT_TRUE(peer);
    EXPECT_THAT(agent.takeNews(),
                testing::Contains(R"({"status":{"connected":{"name":"Cep","internet":true}}})"));
    agent.relay.serversLate = true;
    say({SignalMessage::Offer{"v=0"}}, "pending");
    agent.act([](AgentModel& model) { model.setRemoteAccess(AgentCore::RemoteAccess::off); });
    EXPECT_EQ(peer->closes, 1);
    EXPECT_TRUE(agent.relay.isLeft());
    EXPECT_THAT(agent.takeNews(), ElementsAre(waitingLine, R"({"relay":false})"));
    agent.relay.serversArrive();  // for an offer that was forgotten
    EXPECT_EQ(agent.relay.peers.size(), 1u);
    agent.act([](AgentModel& model) { model.setRemoteAccess(AgentCore::RemoteAccess::on); });
    EXPECT_FALSE(agent.relay.isLeft());
    agent.relay.join();
    EXPECT_THAT(agent.takeNews(), ElementsAre(R"({"relay":true})"));
}

TEST(RemoteAccess, withoutARelayThereIsTheLocalNetworkAlone) {
    FakeAgent agent;
    agent.start();
    EXPECT_TRUE(agent.relay.isLeft());
    EXPECT_EQ(agent.statusLine(), waitingLine);
}

TEST_F(RemoteAccessTest, standbyIsUnlockedForAnHour) {
    start("standby");
    EXPECT_THAT(answersTo({SignalMessage::Probe{}}), ElementsAre(standby));
    EXPECT_THAT(answersTo({SignalMessage::Offer{"v=0"}}), ElementsAre(standby));
    const SignalMessage until = unlockedUntil(1h);
    EXPECT_THAT(answersTo({SignalMessage::Unlock{}}), ElementsAre(until));
    const auto news = agent.takeNews();
    ASSERT_EQ(news.size(), 1u);
    EXPECT_THAT(news[0], testing::StartsWith(R"({"unlock":{"name":"Cep","until":)"));
    agent.relay.rest(59min);
    EXPECT_THAT(answersTo({SignalMessage::Probe{}}), ElementsAre(here));
    EXPECT_TRUE(connected("at 59"));
    agent.relay.rest(2min);
    EXPECT_THAT(answersTo({SignalMessage::Offer{"v=0"}}, "at 61"), ElementsAre(standby));
    EXPECT_EQ(agent.relay.peers.size(), 1u);
}

TEST_F(RemoteAccessTest, theEndOfAnAdmittedSessionLocksAgain) {
    start("standby");
    say({SignalMessage::Unlock{}});
    auto unadmitted = connected("first");
    say({SignalMessage::Bye{}}, "first");
    EXPECT_EQ(unadmitted->closes, 1);
    heard();
    EXPECT_THAT(answersTo({SignalMessage::Probe{}}), ElementsAre(here)) << "nobody was admitted";
    auto peer = admitted("second");
    agent.takeNews();
    say({SignalMessage::Bye{}}, "second");
    EXPECT_THAT(agent.takeNews(), ElementsAre(R"({"unlock":{"name":"Cep"}})", waitingLine));
    heard();
    EXPECT_THAT(answersTo({SignalMessage::Offer{"v=0"}}, "third"), ElementsAre(standby));
}

TEST_F(RemoteAccessTest, whatIsShownAgainDoesNothingAgain) {
    start("standby");
    const std::string unlock = say({SignalMessage::Unlock{}});
    const SignalMessage until = unlockedUntil(1h);
    EXPECT_THAT(heard(), ElementsAre(until));
    agent.relay.rest(100s);
    agent.relay.show(unlock);
    EXPECT_THAT(heard(), ElementsAre(until)) << "not extended";
    const std::string offer = say({SignalMessage::Offer{"v=0"}});
    ASSERT_EQ(agent.relay.peers.size(), 1u);
    onQueue([&] { agent.relay.peers[0]->openAll(); });
    send(*agent.relay.peers[0], {hello()});
    say({SignalMessage::Bye{}});
    heard();
    agent.relay.rest(10s);
    agent.relay.show(unlock);
    EXPECT_THAT(heard(), ElementsAre(standby)) << "locked stays locked";
    say({SignalMessage::Unlock{}});
    heard();
    agent.relay.show(offer);
    EXPECT_EQ(agent.relay.peers.size(), 1u);
    EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(RemoteAccessTest, candidatesWaitForTheirOfferAndStrangersHaveNoSay) {
    start();
    agent.relay.serversLate = true;
    const auto candidate = [](int number) {
        return SignalMessage{
            SignalMessage::Candidate{{"candidate:" + std::to_string(number), "0"}}};
    };
    say(candidate(0));  // for nothing
    say({SignalMessage::Offer{"v=0"}});
    say({SignalMessage::Offer{"v=0 again"}});
    say(candidate(1));
    const Identity other = agent.pairedIdentity();
    agent.relay.broadcast(other, agentKey(), "s1", candidate(66));
    say(candidate(2));
    agent.relay.serversArrive();
    ASSERT_EQ(agent.relay.peers.size(), 1u);
    auto& peer = *agent.relay.peers[0];
    say(candidate(3));
    agent.relay.broadcast(other, agentKey(), "s1", candidate(67));
    agent.relay.broadcast(other, agentKey(), "s1", {SignalMessage::Bye{}});
    EXPECT_THAT(peer.offers, ElementsAre("v=0"));
    std::vector<std::string> added;
    for (const auto& each : peer.candidates)
        added.push_back(each.sdp);
    EXPECT_THAT(added, ElementsAre("candidate:1", "candidate:2", "candidate:3"));
    EXPECT_EQ(peer.closes, 0);
    EXPECT_THAT(peer.configuration.iceServers[0].urls, ElementsAre("stun:stun.example:3478"));

    onQueue([&] { peer.onAnswer("the answer"); });
    EXPECT_THAT(heard(), ElementsAre(SignalMessage{SignalMessage::Answer{"the answer"}}));
}

TEST_F(RemoteAccessTest, anOfferThatWaitedIsJudgedByThePolicyOfItsEnd) {
    start("standby");
    say({SignalMessage::Unlock{}});
    heard();
    agent.relay.serversLate = true;
    say({SignalMessage::Offer{"v=0"}});
    agent.act([](AgentModel& model) { model.setRemoteAccess(AgentCore::RemoteAccess::standby); });
    agent.relay.serversArrive();
    EXPECT_THAT(agent.relay.peers, IsEmpty());
    EXPECT_THAT(heard(), ElementsAre(standby));
    // Or by the pairing of its end.
    say({SignalMessage::Unlock{}});
    say({SignalMessage::Offer{"v=0"}}, "s2");
    agent.act([&](AgentModel& model) { model.forget(phone.fingerprint()); });
    agent.relay.serversArrive();
    EXPECT_THAT(agent.relay.peers, IsEmpty());
}

TEST_F(RemoteAccessTest, sessionsAndOffersAreBoundedAndUnadmittedOnesEnd) {
    start();
    auto first = admitted("admitted");
    for (int i = 0; i < 9; ++i)
        connected("idle" + std::to_string(i));
    const auto closes = [&] {
        int count = 0;
        for (const auto& peer : agent.relay.peers)
            count += peer->closes;
        return count;
    };
    EXPECT_EQ(agent.relay.peers.size(), 10u);
    EXPECT_EQ(closes(), 2);
    EXPECT_EQ(first->closes, 0) << "the admitted one stays";
    EXPECT_EQ(agent.relay.peers[1]->closes + agent.relay.peers[2]->closes, 2);
    agent.relay.rest(181s);
    EXPECT_EQ(closes(), 9);
    EXPECT_EQ(first->closes, 0);

    agent.relay.serversLate = true;
    for (int i = 0; i < 40; ++i)
        say({SignalMessage::Offer{"v=0"}}, "offer" + std::to_string(i));
    agent.relay.serversArrive();
    EXPECT_EQ(agent.relay.peers.size(), 10u + 32);
}

TEST_F(RemoteAccessTest, admissionIsForPairedPhonesUnderTheirOwnNameOnly) {
    start();
    struct Row {
        const char* what;
        std::function<void(Hello&)> change;
        Rejection reason;
    };
    const Row rows[] = {
        {"old", [](Hello& hello) { hello.version = 1; }, Rejection::phoneOutdated},
        {"another's name", [](Hello& hello) { hello.deviceID = "aaaaaaaaaaaaaaaa"; },
         Rejection::pinRequired},
        {"no permission", [&](Hello&) { agent.permissions.screenRecordingGranted = false; },
         Rejection::permissionsMissing},
        {"forgotten meanwhile",
         [&](Hello&) {
             agent.permissions.screenRecordingGranted = true;
             agent.defaults.remove("trustedKeys");
         },
         Rejection::pinRequired},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        auto peer = connected(row.what);
        ASSERT_TRUE(peer);
        Hello wrong = hello();
        row.change(wrong);
        send(*peer, {wrong});
        EXPECT_THAT(controls(*peer), ElementsAre(Control{Control::Rejected{row.reason}}));
        EXPECT_EQ(peer->closes, 0);
        agent.time.advance(500ms);
        EXPECT_EQ(peer->closes, 1);
        EXPECT_EQ(agent.statusLine(), waitingLine);
    }
}

TEST_F(RemoteAccessTest, anAdmittedPhoneSeesAndDrivesLikeALocalOneAndBothDisplaceEachOther) {
    start();
    TestPhone local = agent.admittedPhone();
    auto peer = admitted();
    EXPECT_TRUE(local.isOver());
    auto answers = controls(*peer);
    ASSERT_FALSE(answers.empty());
    EXPECT_TRUE(answers[0].as<Welcome>());
    agent.screen->show(40);
    agent.time.runPending();
    EXPECT_EQ(agent.compression->encoded.size(), 0u) << "it takes pixels";

    send(*peer, {Control::Ping{7}});
    EXPECT_THAT(controls(*peer), testing::Contains(Control{Control::Pong{7}}));
    send(*peer, {Control::MoveTo{0.5, 0.5}});
    EXPECT_THAT(agent.poster.takeEvents(), testing::Contains("moved 640,360 by 640,360"));
    agent.files.entries["/a"] = {.content = "abc"};
    send(*peer, {Control::FetchFile{3, "/a"}});
    EXPECT_THAT(peer->sent, testing::Not(IsEmpty()));

    TestPhone next = agent.admittedPhone();
    EXPECT_EQ(peer->closes, 1);
    agent.screen->show(50);
    EXPECT_FALSE(next.frames().empty());
    EXPECT_EQ(agent.statusLine(),
              R"({"status":{"connected":{"name":"Telefon","internet":false}}})");
}

TEST_F(RemoteAccessTest, aFolderTooLongForAMessageIsCutInItsOrder) {
    agent.files.entries["/many"] = {true};
    for (int i = 10'000; i < 15'000; ++i)
        agent.files.entries["/many/" + std::string(60, 'n') + std::to_string(i)] = {};
    start();
    auto peer = admitted();
    controls(*peer);
    send(*peer, {Control::ListDirectory{"/many"}});
    const auto texts = peer->textsOn(PeerConnection::Channel::control);
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_LE(texts[0].size(), PeerConnection::maxMessageBytes);
    EXPECT_GT(texts[0].size(), PeerConnection::maxMessageBytes - 500);
    const Control cut = Control::fromJson(texts[0]);
    const auto* listing = cut.as<DirectoryListing>();
    ASSERT_TRUE(listing);
    EXPECT_EQ(listing->entries.front().name, std::string(60, 'n') + "10000");
}

}  // namespace
}  // namespace orvel
