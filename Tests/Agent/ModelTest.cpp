// What a person is told and may set: the model's properties, texts and timers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Agent/FakeAgent.h"

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

// An agent in standby at 2026-03-01 08:30 UTC, with a paired phone of a name.
class ModelTest : public testing::Test {
protected:
    void start(const std::string& name = "Cep") {
        agent.time.setWallTime(morning);
        agent.defaults.set("remoteAccess", "standby");
        agent.defaults.set("deviceNames",
                           std::map<std::string, std::string>{{phone.fingerprint(), name}});
        agent.relay.configure();
        agent.start();
        agent.relay.join();
        watchAll();
    }
    // Collects the names of what changes.
    void watchAll() {
        const auto watch = [this](auto signal, const char* name) {
            QObject::connect(agent.model.get(), signal, [this, name] { changed.push_back(name); });
        };
        using Model = AgentModel;
        watch(&Model::screenGrantedChanged, "screenGranted");
        watch(&Model::accessibilityGrantedChanged, "accessibilityGranted");
        watch(&Model::remoteAccessChanged, "remoteAccess");
        watch(&Model::unlockedUntilChanged, "unlockedUntil");
        watch(&Model::remoteEventsChanged, "remoteEvents");
        watch(&Model::keepAwakeChanged, "keepAwake");
    }
    std::vector<std::string> takeChanges() { return std::exchange(changed, {}); }

    void say(const SignalMessage& message, const std::string& session = "s1") {
        agent.relay.broadcast(phone, agent.core->identity.publicKey(), session, message);
    }
    void unlock() { say({SignalMessage::Unlock{}}); }
    void runSession() {
        say({SignalMessage::Offer{"v=0"}}, "session");
        auto peer = agent.relay.peers.back();
        Hello hello;
        hello.deviceID = phone.fingerprint();
        hello.deviceName = "Cep";
        const auto json = Control{hello}.toJson();
        agent.queue.post([&] {
            peer->openAll();
            peer->onMessage(Bytes(json.begin(), json.end()));
        });
        agent.time.runPending();
        say({SignalMessage::Bye{}}, "session");
    }
    void choose(RemoteAccess mode) {
        agent.act([&](AgentModel& model) { model.setRemoteAccess(mode); });
    }

    static constexpr WallTime morning{std::chrono::seconds(1'772'353'800)};
    FakeAgent agent;
    const Identity phone = agent.pairedIdentity();
    std::vector<std::string> changed;
};

TEST_F(ModelTest, anUnlockIsShownRecordedAndAnnouncedUntilItsSessionEnds) {
    start();
    unlock();
    EXPECT_THAT(takeChanges(), ElementsAre("unlockedUntil", "remoteEvents"));
    EXPECT_EQ(agent.model->unlockedUntil(), morning + 1h);
    const char* const opened = "08:30 · Cep uzaktan erişimi açtı (09:30'e kadar)";
    EXPECT_THAT(agent.model->remoteEvents(), ElementsAre(opened));
    ASSERT_EQ(agent.notifier.posted.size(), 1u);
    const auto [identifier, title, body] = agent.notifier.posted[0];
    EXPECT_EQ(title, "Uzaktan erişim açıldı");
    EXPECT_EQ(body,
              "Cep bu Mac'e uzaktan erişimi 09:30'e kadar açtı. Sen istemediysen menüden "
              "Kapalı'yı seç.");

    agent.relay.rest(5min);
    runSession();
    EXPECT_THAT(takeChanges(), ElementsAre("unlockedUntil", "remoteEvents"));
    EXPECT_EQ(agent.model->unlockedUntil(), std::nullopt);
    EXPECT_THAT(agent.model->remoteEvents(),
                ElementsAre("08:35 · Cep oturumu bitti, yeniden beklemede", opened));
    EXPECT_EQ(agent.defaults.strings("remoteEvents"), agent.model->remoteEvents());
    unlock();
    ASSERT_EQ(agent.notifier.posted.size(), 2u) << "the end is not announced";
    EXPECT_NE(agent.notifier.posted[1].identifier, identifier) << "one for each unlock";
}

TEST_F(ModelTest, anUnlockEndsWithItsHourByTheWallClock) {
    start();
    unlock();
    takeChanges();
    agent.relay.rest(1h - 1ns);
    EXPECT_TRUE(agent.model->unlockedUntil());
    agent.time.advance(1ns);
    EXPECT_EQ(agent.model->unlockedUntil(), std::nullopt);
    EXPECT_THAT(takeChanges(), ElementsAre("unlockedUntil"));
    EXPECT_EQ(agent.model->remoteEvents().size(), 1u);

    unlock();
    agent.time.setWallTime(agent.time.wallTime() + 3h);  // a sleep of three hours
    agent.time.advance(AgentModel::permissionPollInterval);
    EXPECT_EQ(agent.model->unlockedUntil(), std::nullopt);
    unlock();
    agent.time.setWallTime(agent.time.wallTime() - 30min);
    agent.relay.rest(80min);
    EXPECT_TRUE(agent.model->unlockedUntil()) << "as for the core";
    agent.relay.rest(10min);
    EXPECT_EQ(agent.model->unlockedUntil(), std::nullopt);
}

TEST_F(ModelTest, choosingAModeLocks) {
    start();
    for (const RemoteAccess mode : {RemoteAccess::standby, RemoteAccess::on, RemoteAccess::off}) {
        choose(RemoteAccess::standby);
        unlock();
        ASSERT_TRUE(agent.model->unlockedUntil());
        agent.act([&](AgentModel& model) {
            model.setRemoteAccess(mode);
            agent.core->onUnlock("Cep", morning + 2h);  // was on its way
        });
        EXPECT_EQ(agent.model->unlockedUntil(), std::nullopt) << rawValue(mode);
        EXPECT_EQ(agent.model->remoteAccess(), mode);
    }
    takeChanges();
    choose(RemoteAccess::off);
    EXPECT_THAT(takeChanges(), IsEmpty());
}

TEST_F(ModelTest, whatIsClosedStaysClosedOnAFullDisk) {
    start();
    agent.defaults.refusesWrites = true;
    choose(RemoteAccess::off);
    EXPECT_TRUE(agent.relay.isLeft());
    EXPECT_EQ(agent.model->remoteAccess(), RemoteAccess::off);
}

TEST_F(ModelTest, theHistoryKeepsThirtyLines) {
    std::vector<std::string> stored(40);
    for (std::size_t i = 0; i < stored.size(); ++i)
        stored[i] = std::to_string(i);
    agent.defaults.set("remoteEvents", stored);
    start();
    EXPECT_EQ(agent.model->remoteEvents().size(), 30u);
    unlock();
    const auto& lines = agent.model->remoteEvents();
    ASSERT_EQ(lines.size(), 30u);
    EXPECT_THAT(lines[0], testing::StartsWith("08:30 · Cep"));
    EXPECT_EQ(lines[1], "0");
    EXPECT_EQ(lines[29], "28");
    EXPECT_EQ(agent.defaults.strings("remoteEvents"), lines);
}

TEST_F(ModelTest, aPhonesNameCannotTurnTheTextAroundIt) {
    start("Cep\n\xE2\x80\xAE" + std::string(100, 'x'));
    unlock();
    const std::string name = "Cep " + std::string(59, 'x') + "…";
    EXPECT_THAT(agent.model->remoteEvents(),
                ElementsAre("08:30 · " + name + " uzaktan erişimi açtı (09:30'e kadar)"));
    EXPECT_THAT(agent.notifier.posted.at(0).body, testing::StartsWith(name + " bu Mac'e"));
}

TEST(AgentModel, announcesEachNewlyPairedPhone) {
    FakeAgent agent;
    agent.pairedIdentity();
    agent.start();
    EXPECT_THAT(agent.notifier.posted, IsEmpty()) << "it was paired before";
    const Identity identity{PrivateKey::generate()};
    for (int round = 0; round < 2; ++round) {
        TestPhone phone = agent.phone(identity);
        phone.shakeHands();
        phone.send({phone.helloWithPin()});
        agent.act([](AgentModel& model) { model.forgetAll(); });
    }
    const Notifier::Notification announced{
        "paired-" + identity.fingerprint(), "Yeni telefon eşleşti",
        "Telefon artık bu Mac'e bağlanabilir. Sen istemediysen menüden kaldır."};
    EXPECT_THAT(agent.notifier.posted, ElementsAre(announced, announced));
    EXPECT_EQ(agent.notifier.permissionRequests, 1);
}

TEST(AgentModel, readsWhatIsStoredAndTakesForeignTypesForNothing) {
    using Dictionary = std::map<std::string, std::string>;
    struct Row {
        const char* name;
        std::map<std::string, FakeDefaults::Value> stored;
        bool keepAwake;
        RemoteAccess remoteAccess;
        std::vector<std::string> events;
    };
    const Row rows[] = {
        {"nothing", {}, true, RemoteAccess::on, {}},
        {"values",
         {{"keepAwake", false}, {"remoteAccess", "off"}, {"remoteEvents", std::vector{"a"s, "b"s}}},
         false,
         RemoteAccess::off,
         {"a", "b"}},
        {"foreign types",
         {{"keepAwake", "false"},
          {"remoteAccess", false},
          {"remoteEvents", "a"},
          {"askBeforePairing", "true"},
          {"trustedKeys", Dictionary{{"a", "b"}}},
          {"deviceNames", true},
          {"pairedAt", Dictionary{}},
          {"lastSeen", std::vector{"a"s}},
          {"relayURL", true},
          {"relayKey", Dictionary{}},
          {"relayOnly", "yes"},
          {"commandKey", true}},
         true,
         RemoteAccess::on,
         {}},
        {"an unknown mode", {{"remoteAccess", "always"}}, true, RemoteAccess::on, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeAgent agent;
        agent.defaults.values = row.stored;
        agent.start();
        EXPECT_EQ(agent.model->keepAwake(), row.keepAwake);
        EXPECT_EQ(agent.power.held.size(), row.keepAwake ? 1u : 0u);
        EXPECT_EQ(agent.model->remoteAccess(), row.remoteAccess);
        EXPECT_EQ(agent.model->remoteEvents(), row.events);
        EXPECT_THAT(agent.model->devices(), IsEmpty());
        // And a phone pairs over it.
        TestPhone phone = agent.phone();
        phone.shakeHands();
        phone.send({phone.helloWithPin()});
        ASSERT_EQ(agent.model->devices().size(), 1u);
        EXPECT_EQ(agent.model->devices()[0].name, "Telefon");
    }
}

TEST(AgentModel, restsOnceAWhileAfterTheLastSession) {
    FakeAgent agent;
    agent.start();
    agent.time.advance(1min);
    EXPECT_EQ(agent.rests, 0);
    TestPhone first = agent.admittedPhone();
    agent.time.advance(1min);
    first.close();
    agent.time.advance(AgentModel::restDelay - 1ns);
    TestPhone next = agent.admittedPhone();
    agent.time.advance(1min);
    EXPECT_EQ(agent.rests, 0);
    next.close();
    agent.time.advance(AgentModel::restDelay);
    EXPECT_EQ(agent.rests, 1);
    agent.time.advance(1min);
    EXPECT_EQ(agent.rests, 1);
}

TEST(AgentModel, keepsAwakeByDefaultAndWithOneAssertion) {
    FakeAgent agent;
    agent.start();
    EXPECT_EQ(agent.power.held.at(1), "Orvel: telefondan erişilebilir kal");
    agent.act([](AgentModel& model) { model.setKeepAwake(true); });
    EXPECT_EQ(agent.power.assertionsMade, 1);
    agent.act([](AgentModel& model) { model.setKeepAwake(false); });
    EXPECT_TRUE(agent.power.held.empty());
    EXPECT_EQ(agent.defaults.boolean("keepAwake"), false);
    agent.act([](AgentModel& model) { model.setKeepAwake(true); });
    EXPECT_EQ(agent.power.assertionsMade, 2);
    EXPECT_EQ(agent.power.held.size(), 1u);
    EXPECT_EQ(agent.power.unknownReleases, 0);
}

TEST_F(ModelTest, permissionsAreLookedAtAndChangesAloneAreTold) {
    agent.permissions.screenRecordingGranted = false;
    start();
    EXPECT_FALSE(agent.model->screenGranted());
    EXPECT_TRUE(agent.model->accessibilityGranted());
    agent.time.advance(20s);
    EXPECT_THAT(takeChanges(), IsEmpty());
    agent.permissions.screenRecordingGranted = true;
    agent.permissions.accessibilityGranted = false;
    agent.time.advance(2s);
    EXPECT_TRUE(agent.model->screenGranted());
    EXPECT_FALSE(agent.model->accessibilityGranted());
    agent.time.advance(20s);
    EXPECT_THAT(takeChanges(), ElementsAre("screenGranted", "accessibilityGranted"));

    agent.permissions.hasSettingsPages = false;
    agent.act([](AgentModel& model) {
        EXPECT_FALSE(model.requestScreenRecording());
        EXPECT_FALSE(model.requestAccessibility());
    });
    EXPECT_EQ(agent.permissions.screenRecordingRequests, 1);
    EXPECT_EQ(agent.permissions.screenRecordingPages, 1);
    EXPECT_EQ(agent.permissions.accessibilityPages, 1);
}

TEST(AgentModel, aPowerManagerThatRefusesIsAskedAgainWithTheNextChange) {
    FakeAgent agent;
    agent.power.refuses = true;
    agent.start();
    agent.power.refuses = false;
    agent.act([](AgentModel& model) { model.setKeepAwake(true); });
    EXPECT_EQ(agent.power.held.size(), 1u);
}

TEST(AgentModel, eachSessionHearsAnewWhatIsInFront) {
    FakeAgent agent;
    agent.start();
    agent.workspace.front = {"org.example.editor", "Editor"};
    agent.textFocus.element = TextFocus::Element{"AXTextArea", true};
    EXPECT_FALSE(agent.workspace.isObserved());
    const Identity identity = agent.pairedIdentity();
    for (int round = 0; round < 2; ++round) {
        TestPhone phone = agent.phone(identity);
        phone.shakeHands();
        phone.send({phone.hello()});
        agent.time.advance(FocusWatcher::interval);
        const auto heard = phone.controls();
        EXPECT_THAT(heard,
                    testing::Contains(Control{Control::FrontApp{"org.example.editor", "Editor"}}));
        EXPECT_THAT(heard, testing::Contains(Control{Control::TextFocus{true}}));
        EXPECT_TRUE(agent.workspace.isObserved());
        phone.close();
        EXPECT_FALSE(agent.workspace.isObserved());
        EXPECT_FALSE(agent.textFocus.isObserved);
    }
}

TEST(ShortTime, isTheLocalesShortFormWithoutTheDate) {
    const WallTime time{std::chrono::seconds(1'772'353'800)};  // 2026-03-01 08:30 UTC
    const QTimeZone zone(3 * 3600);
    EXPECT_EQ(shortTime(time, QLocale("tr_TR"), zone), "11:30");
    EXPECT_EQ(shortTime(time + 12h, QLocale("tr_TR"), zone), "23:30");
    EXPECT_THAT(shortTime(time + 12h, QLocale("en_US"), zone), testing::MatchesRegex("11:30.+PM"));
    EXPECT_EQ(shortTime(time, QLocale::c(), QTimeZone::utc()), "08:30");
}

}  // namespace
}  // namespace orvel
