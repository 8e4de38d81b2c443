#include <gtest/gtest.h>

#include "Tests/Agent/FakeAgent.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

// Pictures and welcomes, in their order.
std::vector<std::string> framesText(const std::vector<Frame>& frames) {
    std::vector<std::string> text;
    for (const Frame& frame : frames) {
        if (frame.kind == FrameKind::videoFormat) text.push_back("format");
        if (frame.kind == FrameKind::videoFrame) {
            text.push_back(VideoFrame::decode(frame.payload).isKeyframe ? "key" : "delta");
        }
        if (FakeAgent::welcomes({frame})) text.push_back("welcome");
    }
    return text;
}

TEST(Service, startsInItsOrderAndIsAdvertised) {
    FakeAgent agent;
    agent.start();
    EXPECT_EQ(agent.takeNews(), (std::vector<std::string>{R"({"status":{"starting":{}}})",
                                                          R"({"listening":{"port":47800}})",
                                                          waitingLine, R"({"devices":[]})"}));
    EXPECT_EQ(agent.advertised->advertised,
              (FakeServiceAdvertiser::Service{"Test Computer", "_orvel._tcp", 47800}));
}

TEST(Service, movesToAFreePortAndStillAdvertises) {
    FakeAgent agent;
    agent.port->taken = {47800};
    agent.host.name.reset();
    agent.start();
    EXPECT_EQ(agent.port->asked, (std::vector<std::uint16_t>{47800, 0}));
    EXPECT_EQ(agent.advertised->advertised,
              (FakeServiceAdvertiser::Service{"Mac", "_orvel._tcp", 50'000}));
}

TEST(Service, saysWhenItCannotListenAndLivesOn) {
    FakeAgent agent;
    agent.port->refusesAll = true;
    agent.start();
    EXPECT_EQ(agent.takeNews(),
              (std::vector<std::string>{R"({"status":{"starting":{}}})",
                                        R"({"status":{"failed":{"message":"refused"}}})",
                                        R"({"devices":[]})"}));
    EXPECT_FALSE(agent.advertised->advertised);
}

TEST(Session, pictureFollowsTheWelcomeAndTheStillScreenGetsOneSharpFrame) {
    FakeAgent agent;
    agent.start();
    TestPhone phone = agent.admittedPhone();
    EXPECT_EQ(agent.screen->calls, (std::vector<std::string>{"list", "start 1 1280x720"}));
    agent.screen->show(50);
    EXPECT_EQ(framesText(phone.frames()), (std::vector<std::string>{"format", "key"}));
    agent.screen->show(60);
    EXPECT_EQ(framesText(phone.frames()), (std::vector<std::string>{"delta"}));
    agent.time.advance(5s);
    EXPECT_EQ(framesText(phone.frames()), (std::vector<std::string>{"format", "key"}));
    phone.send({Control::RequestKeyframe{}});
    EXPECT_EQ(framesText(phone.frames()), (std::vector<std::string>{"format", "key"}));
}

TEST(Session, theActivePhoneAloneIsObeyed) {
    FakeAgent agent;
    agent.start();
    const Identity first = agent.pairedIdentity();
    TestPhone stranger = agent.phone();
    stranger.shakeHands();
    stranger.send({Control::Ping{1}});
    EXPECT_TRUE(stranger.frames().empty());
    TestPhone phone = agent.admittedPhone(first);
    phone.send({Control::Ping{UINT64_MAX}});
    EXPECT_EQ(phone.controls(), std::vector<Control>{{Control::Pong{UINT64_MAX}}});
    stranger.send({Control::Ping{1}});
    EXPECT_TRUE(stranger.frames().empty());
    EXPECT_FALSE(stranger.isOver());
}

TEST(Session, theNewestPhoneTakesOverAndTheOldOnesEndStopsNothing) {
    FakeAgent agent;
    agent.start();
    TestPhone first = agent.admittedPhone();
    agent.takeNews();
    TestPhone second = agent.admittedPhone();
    EXPECT_TRUE(first.isOver());
    EXPECT_EQ(agent.screen->calls.back(), "start 1 1280x720");
    EXPECT_TRUE(agent.screen->running);
    EXPECT_EQ(agent.screen->misuses, 0);
    agent.screen->show(50);
    EXPECT_EQ(framesText(second.frames()), (std::vector<std::string>{"format", "key"}));
    EXPECT_EQ(agent.statusLine(),
              R"({"status":{"connected":{"name":"Telefon","internet":false}}})");
    second.close();
    EXPECT_FALSE(agent.screen->running);
    EXPECT_EQ(agent.statusLine(), waitingLine);
}

TEST(Session, aTakeOverWhileTheCaptureStartsEndsWithTheNewPhonesCapture) {
    for (const char* held : {"list", "start", "stop"}) {
        SCOPED_TRACE(held);
        FakeAgent agent;
        agent.start();
        agent.screen->hold(held);
        TestPhone first = agent.phone(agent.pairedIdentity());
        first.shakeHands();
        first.send({first.hello()});
        TestPhone second = agent.phone(agent.pairedIdentity());
        second.shakeHands();
        second.send({second.hello()});
        EXPECT_TRUE(first.isOver());
        for (int i = 0; i < 4; ++i) {
            agent.screen->proceed(held);
            agent.time.runPending();
        }
        EXPECT_EQ(FakeAgent::welcomes(second.frames()), 1);
        EXPECT_TRUE(agent.screen->running);
        EXPECT_EQ(agent.screen->misuses, 0);
    }
}

TEST(Session, aPhoneThatStopsReadingGetsAKeyframeAfterTheGapAndNothingPilesUp) {
    FakeAgent agent;
    agent.start();
    TestPhone phone = agent.admittedPhone();
    agent.screen->show(0);
    phone.frames();
    phone.stall(true);
    for (int i = 1; i <= 200; ++i) {
        agent.screen->show(static_cast<std::uint8_t>(i));
        agent.time.advance(16ms);
    }
    const int encoded = static_cast<int>(agent.compression->encoded.size());
    EXPECT_GE(encoded, 200);
    phone.stall(false);
    const auto arrived = framesText(phone.frames());
    // The one that was already on its way, then from a keyframe on.
    ASSERT_GE(arrived.size(), 3u);
    EXPECT_LE(arrived.size(), 9u);
    EXPECT_EQ(arrived[0], "delta");
    EXPECT_EQ(arrived[1], "format");
    EXPECT_EQ(arrived[2], "key");
}

TEST(Session, completionsOfADisplacedLinkDoNotCountForItsSuccessor) {
    FakeAgent agent;
    agent.start();
    TestPhone first = agent.admittedPhone();
    agent.screen->show(0);
    first.frames();
    first.stall(true);
    for (int i = 1; i < 6; ++i)
        agent.screen->show(static_cast<std::uint8_t>(i));
    agent.time.runPending();
    TestPhone second = agent.admittedPhone();
    first.stall(false);
    second.stall(true);
    agent.screen->show(10);
    agent.time.runPending();
    agent.compression->encoded.clear();
    int forced = 0;
    for (int i = 11; i < 20; ++i) {
        agent.screen->show(static_cast<std::uint8_t>(i));
        agent.time.runPending();
    }
    for (const auto& each : agent.compression->encoded)
        forced += each.forcedKeyframe;
    EXPECT_GE(forced, 1);  // the ceiling holds for the second phone from its own first frame on
    second.stall(false);
    EXPECT_LE(second.frames().size(), 10u);
}

TEST(Session, anotherDisplayBringsAFreshWelcomeThenItsOwnPicture) {
    FakeAgent agent;
    agent.displays = {{{1, "A", 1280, 720, 1280, true}, {2, "B", 800, 600, 800, false}}};
    agent.start();
    TestPhone phone = agent.admittedPhone();
    agent.screen->show(0);
    phone.frames();
    agent.takeNews();
    phone.stall(true);
    for (int i = 1; i < 4; ++i)
        agent.screen->show(static_cast<std::uint8_t>(i));
    agent.time.runPending();
    phone.send({Control::SelectDisplay{2}});
    agent.screen->show(4);
    agent.time.runPending();
    phone.stall(false);
    const auto frames = phone.frames();
    EXPECT_EQ(framesText(frames), (std::vector<std::string>{"delta", "welcome", "format", "key"}));
    const auto welcome = Framing::decodeControl(frames.at(1).payload);
    EXPECT_EQ(welcome.as<Welcome>()->displayID, 2u);
    EXPECT_EQ(welcome.as<Welcome>()->videoWidth, 800);
    EXPECT_TRUE(agent.takeNews().empty());
    // The next phone starts where this one looked.
    phone.close();
    TestPhone next = agent.phone(agent.pairedIdentity());
    next.shakeHands();
    next.send({next.hello()});
    EXPECT_EQ(next.controls().at(0).as<Welcome>()->displayID, 2u);
}

TEST(Session, aCaptureThatCannotStartRejectsThePhone) {
    FakeAgent agent;
    agent.displays.emplace();
    agent.start();
    TestPhone phone = agent.phone(agent.pairedIdentity());
    phone.shakeHands();
    phone.send({phone.hello()});
    EXPECT_EQ(phone.controls(),
              std::vector<Control>{{Control::Rejected{Rejection::permissionsMissing}}});
    EXPECT_TRUE(phone.isOver());
    EXPECT_EQ(agent.statusLine(), waitingLine);
}

TEST(Session, aCaptureThatEndsByItselfEndsItsLinkAndTheNextPhoneStartsAnew) {
    FakeAgent agent;
    agent.start();
    TestPhone phone = agent.admittedPhone();
    agent.screen->end(CaptureError{"server gone"});
    agent.time.runPending();
    EXPECT_TRUE(phone.isOver());
    EXPECT_EQ(agent.statusLine(), waitingLine);
    TestPhone next = agent.admittedPhone();
    EXPECT_TRUE(agent.screen->running);
}

TEST(Session, theUserMayDisconnectIt) {
    FakeAgent agent;
    agent.start();
    agent.act([](AgentModel& model) { model.disconnect(); });
    TestPhone phone = agent.admittedPhone();
    agent.act([](AgentModel& model) { model.disconnect(); });
    EXPECT_TRUE(phone.isOver());
    EXPECT_EQ(agent.statusLine(), waitingLine);
}

TEST(Session, quittingEndsEverythingAndThenSaysSo) {
    FakeAgent agent;
    agent.start();
    TestPhone phone = agent.admittedPhone(), stranger = agent.phone();
    EXPECT_EQ(agent.power.held.size(), 1u);
    bool done = false;
    agent.act([&](AgentModel& model) { model.quit([&] { done = true; }); });
    EXPECT_TRUE(done);
    EXPECT_TRUE(phone.isOver());
    EXPECT_TRUE(stranger.isOver());
    EXPECT_FALSE(agent.screen->running);
    EXPECT_FALSE(agent.advertised->advertised);
    EXPECT_TRUE(agent.power.held.empty());
    EXPECT_TRUE(agent.phone().isOver());
}

}  // namespace
}  // namespace orvel
