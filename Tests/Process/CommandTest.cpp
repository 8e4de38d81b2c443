// The command line for people, against the program itself.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "OrvelAgent/Control/AgentSnapshot.h"
#include "Phone/PhoneConnection.h"
#include "Tests/Support/AgentProcess.h"

namespace orvel {
namespace {

using phone::PhoneConnection;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Outcome {
    std::optional<int> status;
    std::vector<std::string> lines;
    std::string errors;
    std::string text() const {
        std::string all;
        for (const auto& line : lines)
            all += line + "\n";
        return all;
    }
};

struct CommandTest : testing::Test {
    TemporaryFolder folder;
    const std::string state = folder / "state";

    std::vector<std::string> commandLine(const std::vector<std::string>& words) const {
        std::vector<std::string> command{ORVEL_AGENT_PROGRAM, "--state-dir", state};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }
    Outcome run(const std::vector<std::string>& words) const {
        LineProcess process(commandLine(words), {{"LC_ALL", "C"}, {"DISPLAY", ""}});
        Outcome outcome;
        while (auto line = process.readLine())
            outcome.lines.push_back(std::move(*line));
        outcome.status = process.wait();
        outcome.errors = process.errors();
        return outcome;
    }
    AgentSnapshot snapshot() const {
        return AgentSnapshot::fromLine("{\"snapshot\":" + run({"status", "--json"}).text() + "}");
    }
};

// A phone that has done the handshake; its code is shown.
std::unique_ptr<PhoneConnection> newPhone(std::uint16_t port) {
    auto phone = std::make_unique<PhoneConnection>(Identity{PrivateKey::generate()});
    EXPECT_TRUE(phone->connect("127.0.0.1", port));
    EXPECT_TRUE(phone->secure());
    return phone;
}

TEST_F(CommandTest, withoutAnAgentEachSaysSoAndEndsWithOne) {
    const std::vector<std::vector<std::string>> commands{
        {"status"},      {"devices", "--json"},  {"forget", "--all"}, {"remote"}, {"disconnect"},
        {"permissions"}, {"events", "--follow"}, {"allow"},           {"reject"}, {"quit"}};
    for (const auto& command : commands) {
        const auto outcome = run(command);
        EXPECT_EQ(outcome.status, 1) << command[0];
        EXPECT_THAT(outcome.lines, IsEmpty()) << command[0];
        EXPECT_THAT(outcome.errors, HasSubstr("No agent runs")) << command[0];
    }
    EXPECT_FALSE(std::filesystem::exists(state)) << "asking leaves nothing behind";
}

TEST_F(CommandTest, aWrongLineIsUsageAndTwo) {
    const std::vector<std::vector<std::string>> rows{{"stat"},
                                                     {"forget"},
                                                     {"forget", "x", "--all"},
                                                     {"remote", "maybe"},
                                                     {"status", "more"},
                                                     {"status", "--port", "5"},
                                                     {"events", "--json=x"},
                                                     {"doctor", "x"}};
    for (const auto& row : rows) {
        const auto outcome = run(row);
        EXPECT_EQ(outcome.status, 2) << row[0] << " " << row.back();
        EXPECT_THAT(outcome.lines, IsEmpty());
        EXPECT_THAT(outcome.errors, HasSubstr("Usage:"));
    }
    const auto help = run({"events", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.text(), HasSubstr("--follow"));
}

TEST_F(CommandTest, aWholeLifeOfAPhone) {
    AgentProcess agent(state, "", {"--name", "desk"});
    const auto port = agent.waitListening();
    ASSERT_NE(port, 0) << agent.errors();
    struct stat socket {};
    ASSERT_EQ(stat((state + "/agent.socket").c_str(), &socket), 0);
    EXPECT_EQ(socket.st_mode & 07777, 0600u);

    auto now = snapshot();
    EXPECT_EQ(now.name, "desk");
    EXPECT_EQ(now.listening->port, port);
    EXPECT_EQ(now.listening->address, "127.0.0.1");
    EXPECT_FALSE(now.listening->announced);
    EXPECT_FALSE(now.permissions.screenRecording);
    EXPECT_THAT(run({"devices"}).lines, ElementsAre("No phone is paired."));
    EXPECT_THAT(run({"permissions"}).text(), HasSubstr("missing"));

    LineProcess follower(commandLine({"events", "--follow", "--json"}));
    EXPECT_EQ(follower.readLine(), R"({"history":[]})");
    auto phone = newPhone(port);
    ASSERT_TRUE(follower.readUntil(R"({"pairingCode":")"));
    const std::string code = phone->code();
    EXPECT_THAT(run({"status"}).text(), HasSubstr(code.substr(0, 3) + " " + code.substr(3)));
    EXPECT_EQ(run({"reject"}).lines, std::vector<std::string>{"Refused."});
    const auto rejected = phone->waitFor<Control::Rejected>();
    ASSERT_TRUE(rejected);
    EXPECT_EQ(rejected->reason, Rejection::pinRequired);
    EXPECT_TRUE(follower.readUntil(R"({"pairingCode":null})"));
    const auto again = run({"reject"});
    EXPECT_EQ(again.status, 1);
    EXPECT_THAT(again.errors, HasSubstr("no new phone wants to pair"));
    EXPECT_EQ(run({"allow", "abc"}).status, 1);
    EXPECT_EQ(run({"disconnect"}).lines, std::vector<std::string>{"No phone is connected."});

    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    EXPECT_EQ(follower.wait(), 1) << "the agent has ended";
    EXPECT_FALSE(std::filesystem::exists(state + "/agent.socket"));
}

TEST_F(CommandTest, settingsAreDoneWhenTheCommandReturns) {
    // Two phones of an earlier run, and one with a name that would steer a terminal.
    std::filesystem::create_directories(state);
    std::ofstream(state + "/defaults.json")
        << R"({"trustedKeys":{"aaaaaaaaaaaaaaaa":"QUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUE=",)"
           R"("bbbbbbbbbbbbbbbb":"QkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkJCQkI="},)"
           R"("deviceNames":{"aaaaaaaaaaaaaaaa":"Ayşe","bbbbbbbbbbbbbbbb":"B\u001b[2J"}})";
    AgentProcess agent(state, "");
    ASSERT_NE(agent.waitListening(), 0) << agent.errors();
    ASSERT_TRUE(agent.readUntil(R"({"devices":[{)"));
    const auto table = run({"devices"});
    ASSERT_EQ(table.lines.size(), 3u);
    EXPECT_THAT(table.text(), HasSubstr("aaaaaaaaaaaaaaaa  never   never      Ayşe"));
    EXPECT_THAT(table.text(), HasSubstr(R"(B\x1b[2J)"));
    EXPECT_EQ(run({"devices", "--json"}).lines.size(), 2u);

    EXPECT_EQ(run({"forget", "nobody"}).status, 1);
    EXPECT_EQ(run({"forget", "Ayşe"}).lines,
              std::vector<std::string>{"Forgotten: Ayşe (aaaaaaaaaaaaaaaa)."});
    ASSERT_EQ(snapshot().devices.size(), 1u);
    EXPECT_EQ(run({"forget", "--all"}).status, 0);
    EXPECT_TRUE(snapshot().devices.empty());

    for (const char* mode : {"off", "standby", "on"}) {
        EXPECT_EQ(run({"remote", mode}).lines, std::vector<std::string>{mode});
        EXPECT_EQ(run({"defaults", "read", "remoteAccess"}).text(),
                  "\"" + std::string(mode) + "\"\n");
        EXPECT_EQ(run({"remote"}).lines, std::vector<std::string>{mode});
    }
    EXPECT_EQ(run({"keep-awake", "off"}).lines, std::vector<std::string>{"off"});
    EXPECT_FALSE(snapshot().keepAwake);
    EXPECT_EQ(run({"quit"}).status, 0);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

TEST_F(CommandTest, ofTwoStartsAtOnceOneRunsAndOneEndsWithZero) {
    AgentProcess one(state, ""), two(state, "");
    const auto first = one.readLine(), second = two.readLine();
    ASSERT_NE(first.has_value(), second.has_value());
    AgentProcess& loser = first ? two : one;
    AgentProcess& winner = first ? one : two;
    EXPECT_EQ(loser.wait(), 0);
    EXPECT_THAT(loser.errors(), HasSubstr("another agent runs"));
    ASSERT_TRUE(winner.readUntil("\"waiting\""));
    EXPECT_EQ(run({"status"}).status, 0) << "the loser left the winner's socket alone";
    winner.signal(SIGKILL);
    EXPECT_EQ(winner.wait(), -SIGKILL);
    EXPECT_EQ(run({"status"}).status, 1) << "nobody listens on the socket that is left";
    AgentProcess next(state, "");
    ASSERT_NE(next.waitListening(), 0) << next.errors();
    EXPECT_EQ(run({"status"}).status, 0);
}

TEST_F(CommandTest, theDoctorWorksWithAndWithoutAnAgent) {
    const auto findingsOf = [this](const Outcome& outcome) {
        std::map<std::string, std::string> byCheck;
        for (const std::string& line : outcome.lines)
            byCheck[AgentProcess::valueOf(line, "check")] = line;
        return byCheck;
    };
    auto alone = findingsOf(run({"doctor", "--json"}));
    EXPECT_THAT(alone["agent"], HasSubstr("does not run"));
    EXPECT_THAT(alone["display"], HasSubstr("\"problem\""));
    EXPECT_THAT(alone["relay"], HasSubstr("not configured"));
    for (const char* check :
         {"port", "sound", "session bus", "secrets", "network name", "firewall", "state", "start"})
        EXPECT_NE(alone[check], "") << check;

    AgentProcess agent(
        state, "", {},
        {{"ORVEL_PROJECT_URL", "http://127.0.0.1:1"}, {"ORVEL_PROJECT_KEY", "do-not-print"}});
    ASSERT_NE(agent.waitListening(), 0) << agent.errors();
    const auto outcome = run({"doctor", "--json"});
    EXPECT_EQ(outcome.status, 1);
    auto beside = findingsOf(outcome);
    EXPECT_THAT(beside["agent"], HasSubstr("phones are refused"));
    EXPECT_THAT(beside["relay"], HasSubstr("127.0.0.1 cannot be reached")) << "the agent's relay";
    EXPECT_THAT(beside["network name"], HasSubstr("told not to announce"));
    EXPECT_EQ(outcome.text().find("do-not-print"), std::string::npos);
    EXPECT_THAT(run({"doctor"}).text(), HasSubstr(" problems, "));
}

}  // namespace
}  // namespace orvel
