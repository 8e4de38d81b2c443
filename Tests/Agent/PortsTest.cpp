// What one whole pairing session asks of the system, written out: what a port's own side (a
// keychain item, a property list, a power assertion, a capture's configuration) is made of.

#include <gtest/gtest.h>

#include "Tests/Agent/FakeAgent.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

struct PortsTest : testing::Test {
    PortsTest() {
        agent.displays = {{{9, "Masa", 1512, 982, 3024, true}}};
        agent.start();
        phone.emplace(agent.phone());
        phone->shakeHands();
        phone->send({phone->helloWithPin()});
    }
    FakeAgent agent;
    std::optional<TestPhone> phone;
};

TEST_F(PortsTest, theKeyIsOneSecretOfThisProgram) {
    const auto item = agent.secrets.read("com.halverton.orvel.agent", "identity");
    ASSERT_EQ(item.status, SecretStore::Item::Status::found);
    const auto key = PrivateKey::fromRaw(item.data);
    ASSERT_TRUE(key);
    EXPECT_EQ(key->publicKey(), agent.core->identity.publicKey());
}

TEST_F(PortsTest, eachDefaultHasTheTypeThatOthersReadItBy) {
    agent.act([](AgentModel& model) {
        model.setKeepAwake(false);
        model.setRemoteAccess(AgentCore::RemoteAccess::standby);
    });
    using Value = FakeDefaults::Value;
    const std::string id = phone->identity.fingerprint();
    const std::map<std::string, WallTime> now{{id, agent.time.wallTime()}};
    const std::map<std::string, Value> want{
        {"deviceNames", std::map<std::string, std::string>{{id, "Telefon"}}},
        {"keepAwake", false},
        {"lastSeen", now},
        {"pairedAt", now},
        {"remoteAccess", std::string("standby")},
        {"trustedKeys", std::map<std::string, Bytes>{{id, phone->identity.publicKey()}}},
    };
    EXPECT_EQ(agent.defaults.values, want);
}

TEST_F(PortsTest, theCaptureIsThatOfTheMainDisplayWithItsSound) {
    const auto& running = agent.screen->running;
    ASSERT_TRUE(running);
    EXPECT_EQ(running->displayID, 9u);
    EXPECT_EQ(running->width, 1920);
    EXPECT_EQ(running->height, 1246);
    EXPECT_TRUE(running->capturesAudio);
    EXPECT_EQ(agent.compression->calls,
              (std::vector<std::string>{"create 1920x1246 lowLatency", "realTime true",
                                        "profileLevel H264_ConstrainedHigh_AutoLevel",
                                        "allowFrameReordering false", "averageBitRate 7176960",
                                        "expectedFrameRate 60", "maxKeyFrameIntervalDuration 4",
                                        "prepare"}));
}

TEST_F(PortsTest, theServiceIsOnTheListenersPortAndTheDisplayWakes) {
    EXPECT_EQ(agent.advertised->advertised,
              (FakeServiceAdvertiser::Service{"Test Computer", "_orvel._tcp", 47800}));
    EXPECT_EQ(agent.power.activities, std::vector<std::string>{"Orvel: telefon bağlandı"});
    EXPECT_EQ(agent.power.held,
              (std::map<std::uint32_t, std::string>{{1, "Orvel: telefondan erişilebilir kal"}}));
    EXPECT_EQ(agent.notifier.permissionRequests, 1);
}

TEST_F(PortsTest, theEndOfTheSessionLetsGoOfTheScreenAndTheKeys) {
    agent.poster.takeEvents();
    phone->close();
    EXPECT_FALSE(agent.screen->running);
    EXPECT_EQ(agent.compression->alive, 0);
    EXPECT_EQ(agent.poster.takeEvents().back(), "release all");
}

}  // namespace
}  // namespace orvel
