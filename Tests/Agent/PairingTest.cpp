#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Agent/FakeAgent.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

std::vector<Control> rejectedWith(Rejection reason) {
    return {{Control::Rejected{reason}}};
}

TEST(Pairing, aNewPhonePairsWithItsCodeAndComesBackWithout) {
    FakeAgent agent;
    agent.start();
    agent.takeNews();
    TestPhone phone = agent.phone();
    phone.shakeHands();
    EXPECT_EQ(agent.model->pairingCode(), phone.code);
    phone.send({phone.helloWithPin()});
    const auto welcome = phone.controls();
    ASSERT_FALSE(welcome.empty());
    ASSERT_TRUE(welcome[0].as<Welcome>());
    const std::string id = phone.identity.fingerprint();
    const auto now = static_cast<std::int64_t>(secondsSinceReferenceDate(agent.time.wallTime()));
    const std::string stamp = std::to_string(now);
    EXPECT_EQ(agent.takeNews(),
              (std::vector<std::string>{
                  R"({"pairingCode":")" + phone.code + R"("})", R"({"pairingCode":null})",
                  R"({"devices":[{"id":")" + id + R"(","name":"Telefon","pairedAt":)" + stamp +
                      R"(,"lastSeen":)" + stamp + "}]}",
                  R"({"status":{"connected":{"name":"Telefon","internet":false}}})"}));
    EXPECT_EQ(agent.newlyPaired, std::vector<std::string>{"Telefon"});

    phone.close();
    EXPECT_EQ(agent.takeNews(), std::vector<std::string>{waitingLine});
    TestPhone again = agent.phone(phone.identity);
    again.shakeHands();
    EXPECT_EQ(agent.model->pairingCode(), std::nullopt);
    again.send({again.hello()});
    EXPECT_TRUE(again.controls().at(0).as<Welcome>());
    EXPECT_EQ(agent.newlyPaired.size(), 1u);
}

TEST(Pairing, theWelcomeSaysWhatThisComputerIs) {
    FakeAgent agent;
    agent.displays = {{{7, "", 1512, 982, 3024, false}, {9, "Masa", 1280, 720, 1280, true}}};
    agent.host.buildVersionText.reset();
    agent.start();
    TestPhone phone = agent.phone(agent.pairedIdentity());
    phone.shakeHands();
    phone.send({phone.hello()});
    const auto controls = phone.controls();
    ASSERT_FALSE(controls.empty());
    const auto* welcome = controls[0].as<Welcome>();
    ASSERT_TRUE(welcome);
    const Welcome want{"Test Computer",
                       1280,
                       720,
                       1280,
                       720,
                       agent.core->identity.publicKey(),
                       {{{7, "Ekran 7", 1512, 982}, {9, "Masa", 1280, 720}}},
                       9,
                       2,
                       "0.1.0 (?)"};
    EXPECT_EQ(*welcome, want);
    EXPECT_EQ(agent.power.activities, std::vector<std::string>{"Orvel: telefon bağlandı"});
}

TEST(Pairing, whoIsNotAdmittedHearsWhyAndIsGone) {
    struct Row {
        const char* name;
        std::function<void(FakeAgent&, TestPhone&, Hello&)> change;
        Rejection want;
    };
    const Row rows[] = {
        {"without a pin", [](auto&, auto&, Hello& h) { h.pin.reset(); }, Rejection::pinRequired},
        {"wrong pin", [](auto&, auto&, Hello& h) { h.pin = "x"; }, Rejection::wrongPin},
        {"old protocol", [](auto&, auto&, Hello& h) { h.version = 1; }, Rejection::phoneOutdated},
        {"no screen",
         [](FakeAgent& a, auto&, auto&) { a.permissions.screenRecordingGranted = false; },
         Rejection::permissionsMissing},
        {"somebody else's ID", [](auto&, auto&, Hello& h) { h.deviceID = "aaaaaaaaaaaaaaaa"; },
         Rejection::pinRequired},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeAgent agent;
        agent.start();
        TestPhone phone = agent.phone();
        phone.shakeHands();
        Hello hello = phone.helloWithPin();
        row.change(agent, phone, hello);
        phone.send({hello});
        EXPECT_EQ(phone.controls(), rejectedWith(row.want));
        EXPECT_TRUE(phone.isOver());
        EXPECT_EQ(agent.model->pairingCode(), std::nullopt);
        EXPECT_TRUE(agent.model->devices().empty());
        EXPECT_TRUE(agent.screen->calls.empty());
    }
}

TEST(Pairing, theNewestCodeIsShownAndHiddenWithItsPhone) {
    FakeAgent agent;
    agent.start();
    TestPhone first = agent.phone(), second = agent.phone();
    first.shakeHands();
    second.shakeHands();
    EXPECT_EQ(agent.model->pairingCode(), second.code);
    first.close();
    EXPECT_EQ(agent.model->pairingCode(), second.code);
    agent.time.advance(180s);
    EXPECT_TRUE(second.isOver());
    EXPECT_EQ(agent.model->pairingCode(), std::nullopt);
}

TEST(Pairing, theUserMayRefuseTheShownPhone) {
    FakeAgent agent;
    agent.start();
    TestPhone phone = agent.phone();
    phone.shakeHands();
    agent.act([](AgentModel& model) { model.rejectPairing(); });
    EXPECT_EQ(agent.model->pairingCode(), std::nullopt);
    EXPECT_EQ(phone.controls(), rejectedWith(Rejection::pinRequired));
    EXPECT_TRUE(phone.isOver());
    agent.act([](AgentModel& model) { model.rejectPairing(); });  // nothing shown: nothing happens
}

TEST(Pairing, whenTheUserWantsToBeAskedANewPhoneWaitsForIt) {
    FakeAgent agent;
    agent.defaults.set("askBeforePairing", true);
    const Identity knownIdentity = agent.pairedIdentity();
    agent.start();
    TestPhone phone = agent.phone(), wrong = agent.phone(), known = agent.phone(knownIdentity);
    wrong.shakeHands();
    wrong.send({wrong.hello()});
    EXPECT_EQ(wrong.controls(), rejectedWith(Rejection::pinRequired));
    phone.shakeHands();
    phone.send({phone.helloWithPin()});
    const std::string id = phone.identity.fingerprint();
    EXPECT_TRUE(phone.controls().empty());
    EXPECT_EQ(agent.model->pairingRequest(), (PairingRequest{id, "Telefon"}));
    EXPECT_EQ(agent.newlyPaired.size(), 0u);
    known.shakeHands();
    known.send({known.hello()});
    EXPECT_TRUE(known.controls().at(0).as<Welcome>());  // who is known is not asked about
    agent.act([](AgentModel& model) { model.allowPairing("somebody else"); });
    EXPECT_TRUE(phone.controls().empty());
    agent.act([&](AgentModel& model) { model.allowPairing(id); });
    EXPECT_TRUE(phone.controls().at(0).as<Welcome>());
    EXPECT_EQ(agent.model->pairingRequest(), std::nullopt);
    EXPECT_EQ(agent.model->pairingCode(), std::nullopt);
    EXPECT_EQ(agent.newlyPaired, std::vector<std::string>{"Telefon"});
}

TEST(Pairing, aRequestIsWithdrawnWhenItsPhoneGoesOrIsRefused) {
    FakeAgent agent;
    agent.defaults.set("askBeforePairing", true);
    agent.start();
    TestPhone phone = agent.phone(), other = agent.phone();
    for (TestPhone* each : {&phone, &other}) {
        each->shakeHands();
        each->send({each->helloWithPin()});
    }
    EXPECT_EQ(agent.model->pairingRequest()->deviceID, other.identity.fingerprint());
    agent.act([](AgentModel& model) { model.rejectPairing(); });
    EXPECT_EQ(other.controls(), rejectedWith(Rejection::pinRequired));
    EXPECT_EQ(agent.model->pairingRequest()->deviceID, phone.identity.fingerprint());
    agent.time.advance(180s);
    EXPECT_TRUE(phone.isOver());
    EXPECT_EQ(agent.model->pairingRequest(), std::nullopt);
    agent.act([&](AgentModel& model) { model.allowPairing(phone.identity.fingerprint()); });
    EXPECT_TRUE(agent.model->devices().empty());
}

TEST(Pairing, strangersCannotKeepAKnownPhoneOut) {
    FakeAgent agent;
    agent.start();
    std::vector<TestPhone> strangers;
    for (int i = 0; i < 100; ++i) {
        strangers.push_back(
            agent.phone({PrivateKey::generate()}, "198.51.100." + std::to_string(i)));
        if (i % 2 == 0) strangers.back().shakeHands();
    }
    TestPhone known = agent.admittedPhone();
    EXPECT_FALSE(known.isOver());
    int living = 0;
    for (auto& stranger : strangers)
        living += !stranger.isOver();
    EXPECT_EQ(living, 32 + 50);
}

TEST(Pairing, whoTriesManyHandshakesForASuitableCodeIsSlowedDownAndAloneWaits) {
    FakeAgent agent;
    agent.start();
    const auto answeredTry = [&](const std::string& from) {
        TestPhone phone = agent.phone({PrivateKey::generate()}, from);
        phone.sendRaw(phone.commitFrame());
        const bool answered = !phone.wire->fromAgent.empty();
        phone.close();  // the code did not suit
        return answered;
    };
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(answeredTry("198.51.100.1")) << i;
    EXPECT_TRUE(answeredTry("198.51.100.1"));  // begins the first step
    EXPECT_FALSE(answeredTry("198.51.100.1"));

    // Ten keep trying; a known phone from elsewhere has its turn after one of them.
    std::vector<TestPhone> tries;
    for (int i = 0; i < 10; ++i) {
        tries.push_back(agent.phone({PrivateKey::generate()}, "198.51.100.1"));
        tries.back().sendRaw(tries.back().commitFrame());
    }
    TestPhone known = agent.phone(agent.pairedIdentity(), "203.0.113.9");
    known.sendRaw(known.commitFrame());
    agent.time.advance(3 * HandshakePacer::step);
    EXPECT_FALSE(known.wire->fromAgent.empty());
    const auto answered = [&] {
        return std::count_if(tries.begin(), tries.end(),
                             [](auto& each) { return !each.wire->fromAgent.empty(); });
    };
    EXPECT_LE(answered(), 2);
    agent.time.advance(10 * HandshakePacer::step);
    EXPECT_EQ(answered(), 10);

    tries.clear();
    agent.time.advance(3min);
    EXPECT_TRUE(answeredTry("198.51.100.1"));
    EXPECT_TRUE(answeredTry("198.51.100.1"));
}

TEST(Pairing, forgettingEndsThatPhonesLinksAndForgettingAllOnlyTheActiveOne) {
    FakeAgent agent;
    agent.start();
    const Identity a = agent.pairedIdentity(), b = agent.pairedIdentity();
    TestPhone first = agent.admittedPhone(a), idle = agent.phone(b);
    idle.shakeHands();
    agent.act([&](AgentModel& model) { model.forget(b.fingerprint()); });
    EXPECT_TRUE(idle.isOver());
    EXPECT_FALSE(first.isOver());
    EXPECT_EQ(agent.model->devices().size(), 1u);
    TestPhone stranger = agent.phone();
    stranger.shakeHands();
    agent.act([](AgentModel& model) { model.forgetAll(); });
    EXPECT_TRUE(first.isOver());
    EXPECT_FALSE(stranger.isOver());
    EXPECT_TRUE(agent.model->devices().empty());
    TestPhone returning = agent.phone(a);
    returning.shakeHands();
    returning.send({returning.hello()});
    EXPECT_EQ(returning.controls(), rejectedWith(Rejection::pinRequired));
}

}  // namespace
}  // namespace orvel
