// The program from outside: its lines, its flags, its end, and what it bears.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Phone/PhoneConnection.h"
#include "Tests/Support/AgentProcess.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using phone::PhoneConnection;

TEST(AgentProcess, printsItsLinesInOrderAndEndsCleanlyOnSigterm) {
    TemporaryFolder folder;
    const std::string state = folder / "state";
    AgentProcess agent(state, "");
    const auto identity = agent.readLine();
    ASSERT_TRUE(identity) << agent.errors();
    EXPECT_EQ(identity->find(R"({"identity":{"deviceID":")"), 0u);
    EXPECT_EQ(agent.readLine(), R"({"status":{"starting":{}}})");
    const auto listening = agent.readLine();
    ASSERT_TRUE(listening);
    EXPECT_EQ(listening->find(R"({"listening":{"port":)"), 0u);
    EXPECT_EQ(agent.readLine(), R"({"status":{"waiting":{}}})");
    EXPECT_EQ(agent.readLine(), R"({"devices":[]})");
    agent.closeInput();
    EXPECT_EQ(agent.readLine(100ms), std::nullopt);
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

TEST(AgentProcess, answersUnknownLinesAndObeysQuit) {
    TemporaryFolder folder;
    const std::string state = folder / "state";
    AgentProcess agent(state, "");
    ASSERT_NE(agent.waitListening(), 0) << agent.errors();
    for (const char* line : {"nonsense", R"({"explode":{}})", ""}) {
        agent.writeLine(line);
        EXPECT_TRUE(agent.readUntil(R"({"error":")")) << line;
    }
    agent.writeLine(R"({"setRemoteAccess":{"_0":"off"}})");
    agent.writeLine(R"({"quit":{}})");
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    LineProcess defaults(
        {ORVEL_AGENT_PROGRAM, "--state-dir", state, "defaults", "read", "remoteAccess"});
    EXPECT_EQ(defaults.readLine(), "\"off\"");
    EXPECT_EQ(defaults.wait(), 0);
}

TEST(AgentProcess, inATerminalItSpeaksToPeople) {
    TemporaryFolder folder;
    LineProcess agent({ORVEL_AGENT_PROGRAM, "--state-dir", folder / "state", "--bind", "127.0.0.1",
                       "--no-advertise"},
                      {{"DISPLAY", ""}});
    const auto listening = agent.readUntil("listening on port ");
    ASSERT_TRUE(listening) << agent.errors();
    const int port = std::atoi(listening->c_str() + listening->rfind(' '));
    ASSERT_TRUE(agent.readUntil("waiting for a phone"));
    PhoneConnection connection(Identity{PrivateKey::generate()});
    ASSERT_TRUE(connection.connect("127.0.0.1", static_cast<std::uint16_t>(port)));
    ASSERT_TRUE(connection.secure());
    const std::string code = connection.code();
    EXPECT_TRUE(agent.readUntil(code.substr(0, 3) + " " + code.substr(3)));
    agent.writeLine("reject");
    const auto rejected = connection.waitFor<Control::Rejected>();
    ASSERT_TRUE(rejected);
    EXPECT_EQ(rejected->reason, Rejection::pinRequired);
    agent.writeLine("what?");
    EXPECT_TRUE(agent.readUntil("type allow, reject"));
    agent.writeLine("quit");
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

TEST(AgentProcess, aWrongFlagIsUsageAndTwo) {
    LineProcess agent({ORVEL_AGENT_PROGRAM, "--headles"});
    EXPECT_EQ(agent.wait(), 2);
    EXPECT_NE(agent.errors().find("--state-dir"), std::string::npos);
}

TEST(AgentProcess, keepsItsIdentityAndItsStateToItself) {
    TemporaryFolder folder;
    const std::string state = folder / "state";
    std::string identity;
    {
        AgentProcess first(state, "");
        identity = *first.readLine();
        const auto port = first.waitListening();
        ASSERT_NE(port, 0) << first.errors();
        AgentProcess second(state, "");
        EXPECT_EQ(second.wait(), 0);
        EXPECT_NE(second.errors().find("another agent runs"), std::string::npos);
        TemporaryFolder other;
        AgentProcess third(other / "state", "", {"--port", std::to_string(port)});
        EXPECT_NE(third.waitListening(), 0) << third.errors();
        first.signal(SIGKILL);
        EXPECT_EQ(first.wait(), -SIGKILL);
    }
    AgentProcess again(state, "");
    EXPECT_EQ(again.readLine(), identity);
}

TEST(AgentProcess, withoutADisplayAPhoneHearsWhatIsMissing) {
    TemporaryFolder folder;
    const std::string state = folder / "state";
    AgentProcess agent(state, "");
    const auto port = agent.waitListening();
    ASSERT_NE(port, 0) << agent.errors();
    PhoneConnection connection(Identity{PrivateKey::generate()});
    ASSERT_TRUE(connection.connect("127.0.0.1", port));
    ASSERT_TRUE(connection.secure());
    EXPECT_EQ(AgentProcess::valueOf(*agent.readUntil("pairingCode"), "pairingCode"),
              connection.code());
    connection.send({connection.hello("Telefon", connection.code())});
    const auto rejected = connection.waitFor<Control::Rejected>();
    ASSERT_TRUE(rejected);
    EXPECT_EQ(rejected->reason, Rejection::permissionsMissing);
    EXPECT_TRUE(agent.readUntil(R"({"pairingCode":null})"));
    ASSERT_TRUE(connection.waitClosed());
    EXPECT_EQ(connection.closed()->reason, PhoneConnection::Closed::Reason::closedByAgent);
}

TEST(AgentProcess, foreignStateIsKeptAsideAndAReadOnlyFolderIsBorne) {
    TemporaryFolder folder;
    const std::string state = folder / "state";
    std::filesystem::create_directories(state);
    std::ofstream(state + "/defaults.json") << "{\"trustedKeys\":{\"a\":";
    {
        AgentProcess agent(state, "");
        EXPECT_NE(agent.waitListening(), 0) << agent.errors();
        agent.writeLine(R"({"setKeepAwake":{"_0":false}})");
        agent.writeLine(R"({"quit":{}})");
        EXPECT_EQ(agent.wait(), 0);
    }
    AgentProcess nowhere("/proc/nowhere", "");  // not even root can write there
    EXPECT_NE(nowhere.waitListening(), 0) << nowhere.errors();
    nowhere.writeLine(R"({"forgetAll":{}})");
    EXPECT_EQ(nowhere.readUntil(R"({"devices":[]})"), R"({"devices":[]})");
    EXPECT_EQ(nowhere.readUntil(R"({"devices":[]})"), R"({"devices":[]})");
}

TEST(AgentProcess, strangersOnRealSocketsNeitherStopItNorFillIt) {
    TemporaryFolder folder;
    const std::string state = folder / "state";
    AgentProcess agent(state, "");
    const auto port = agent.waitListening();
    ASSERT_NE(port, 0) << agent.errors();
    long before = 0;
    const Bytes nonsense[] = {
        Bytes(1000, 0), {5, 0, 0, 0, 65}, {6, 255, 255, 255, 255}, {1, 0, 0, 0, 2, '{', '}'}};
    constexpr int warmingUp = 20;  // for what every program, and a sanitizer more, lays in at first
    for (int round = 0; round < warmingUp + 60; ++round) {
        if (round == warmingUp) before = agent.residentKilobytes();
        PhoneConnection one(Identity{PrivateKey::generate()}),
            two(Identity{PrivateKey::generate()});
        ASSERT_TRUE(one.connect("127.0.0.1", port)) << round;
        one.sendRaw(nonsense[round % 4]);
        EXPECT_TRUE(one.waitClosed()) << round;
        ASSERT_TRUE(two.connect("127.0.0.1", port)) << round;
        ASSERT_TRUE(two.secure()) << round;
        two.sendInner(FrameKind::control, bytesOf(round % 2 ? "{}" : "\xFF"));
        EXPECT_TRUE(two.waitClosed()) << round;
    }
    EXPECT_LT(agent.residentKilobytes() - before, 40'000);  // a sanitizer keeps what was freed
    PhoneConnection last(Identity{PrivateKey::generate()});
    ASSERT_TRUE(last.connect("127.0.0.1", port));
    EXPECT_TRUE(last.secure());
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

}  // namespace
}  // namespace orvel
