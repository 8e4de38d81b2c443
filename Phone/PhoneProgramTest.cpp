#include "Phone/PhoneProgram.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "OrvelKit/Base/Json.h"
#include "Phone/PhoneProgramForTests.h"
#include "Phone/VideoForTests.h"
#include "Tests/Support/BackgroundProcess.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

struct UsageRow {
    const char* name;
    std::vector<std::string> arguments;
    int code;
};

const UsageRow usageRows[] = {
    {"help", {"--help"}, 0},
    {"a command's help", {"watch", "--help"}, 0},
    {"nothing", {}, 2},
    {"an unknown command", {"fly"}, 2},
    {"an unknown flag", {"watch", "--fly"}, 2},
    {"a missing value", {"watch", "--seconds"}, 2},
    {"seconds that are none", {"watch", "--seconds", "many"}, 2},
    {"no time at all", {"watch", "--seconds", "0"}, 2},
    {"a port without a host", {"--port", "1", "ping"}, 2},
    {"a port that is none", {"--host", "h", "--port", "65536", "ping"}, 2},
    {"a code that is none", {"--host", "h", "pair", "--code", "12345"}, 2},
    {"a picture without a file", {"shot"}, 2},
    {"no pings", {"ping", "-c", "0"}, 2},
    {"samples without a probe", {"watch", "--samples", "3"}, 2},
    {"half a move", {"move", "1"}, 2},
    {"a move to nowhere", {"move", "nan", "1"}, 2},
    {"a move too far", {"move", "1e9", "1"}, 2},
    {"a place beside the display", {"move", "--to", "1.01", "0"}, 2},
    {"a button that is none", {"click", "middle"}, 2},
    {"no clicks", {"click", "--count", "0"}, 2},
    {"a click at half a place", {"click", "--at", "0.5"}, 2},
    {"a drag without an end", {"drag", "0", "0", "1"}, 2},
    {"a scroll by words", {"scroll", "a", "lot"}, 2},
    {"a scroll to infinity", {"scroll", "0", "inf"}, 2},
    {"a key that is none", {"key", "hyper+a"}, 2},
    {"a key both ways", {"key", "a", "--down", "--up"}, 2},
    {"nothing to type", {"type"}, 2},
    {"nothing to fetch", {"get"}, 2},
    {"a file without a name", {"get", "/home/.."}, 2},
    {"a relay without the internet", {"--relay", "http://r", "ping"}, 2},
    {"a relay alone without the internet", {"--relay-only", "ping"}, 2},
    {"two commands", {"ping", "displays"}, 2},
};

TEST_F(PhoneProgramTest, wrongUsageIsShownTheUsage) {
    for (const auto& row : usageRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(run(row.arguments), row.code);
        EXPECT_THAT(row.code == 0 ? said() : remarked(), HasSubstr("Usage: orvel-phone"));
    }
    EXPECT_FALSE(std::filesystem::exists(state())) << "nothing was begun";
}

TEST_F(PhoneProgramTest, aStateThatCannotBeUsedIsSaid) {
    std::filesystem::create_directory(state());
    std::ofstream(state() + "/identity") << "no key";
    EXPECT_EQ(run({"ping"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("The phone's key"));
}

TEST_F(PhoneProgramTest, discoverListsWhatTheNetworkShows) {
    network.agents = {{"Desk", "desk.local", 47800, {"192.0.2.1", "2001:db8::1"}},
                      {"Lap", "lap.local", 50000, {}}};
    EXPECT_EQ(run({"discover"}), 0);
    EXPECT_EQ(said(), "Desk  desk.local  192.0.2.1  port 47800\nLap  lap.local    port 50000\n");
    EXPECT_EQ(run({"--json", "discover"}), 0);
    EXPECT_EQ(
        said(),
        R"({"name":"Desk","host":"desk.local","port":47800,"addresses":["192.0.2.1","2001:db8::1"]})"
        "\n"
        R"({"name":"Lap","host":"lap.local","port":50000,"addresses":[]})"
        "\n");
    network = {};
    EXPECT_EQ(run({"discover"}), 1);
    network.problem = "Daemon not running";
    EXPECT_EQ(run({"discover"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("Daemon not running"));
}

TEST_F(PhoneProgramTest, displaysMarksTheOneThatIsShown) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"displays"}), 0);
    EXPECT_EQ(said(), "* 1  Left  320x240\n  2  Right  640x480\n");
    EXPECT_EQ(runAt(agent, {"--json", "displays"}), 0);
    EXPECT_EQ(said(), R"({"id":1,"name":"Left","width":320,"height":240,"streamed":true})"
                      "\n"
                      R"({"id":2,"name":"Right","width":640,"height":480,"streamed":false})"
                      "\n");
}

TEST_F(PhoneProgramTest, pingsAreAnsweredWithTheirOwnNumbers) {
    std::vector<std::uint64_t> values;
    AgentForTests agent([&](AgentEnd& end) {
        end.admit();
        for (;;) {
            values.push_back(end.receive<Control::Ping>().value);
            end.send(AudioPacket{1, Bytes{1}}.encode());
            end.send({Control::Pong{values.back()}});
        }
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"--json", "ping", "-c", "3"}), 0) << remarked();
    agent.finish();
    EXPECT_THAT(values, SizeIs(3));
    EXPECT_NE(values[0], values[1]);
    const JsonDocument answer(said());
    EXPECT_EQ(answer.root().member("answers")->unsignedInteger(), 3u);
    EXPECT_LE(answer.root().member("minMs")->number(), answer.root().member("maxMs")->number());
}

TEST_F(PhoneProgramTest, aWrongPongIsNotTakenForAnAnswer) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        end.send({Control::Pong{end.receive<Control::Ping>().value + 1}});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"ping", "-c", "1"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("another number"));
}

TEST_F(PhoneProgramTest, shotPrefersTheSharpPicture) {
    for (const bool sharpens : {false, true}) {
        SCOPED_TRACE(sharpens);
        VideoForTests video(64, 64);
        AgentForTests agent([&](AgentEnd& end) {
            end.secure();
            end.receive<Hello>();
            end.send({end.welcome()});
            end.send(video.format.encode());
            const std::uint64_t taken = nowMicros();
            end.send(video.grey(16, true, taken).encode());
            end.send(video.grey(16, true, taken).encode());  // the one asked for with the welcome
            if (sharpens) end.send(video.grey(235, true, taken + 450'000).encode());
            end.waitForEnd();
        });
        know(agent);
        const std::string path = folder / "out.png", raw = folder / "raw";
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(runAt(agent, {"shot", path}), 0) << remarked();
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_TRUE(sharpens || took >= 900ms) << "it gives the sharp one its time";
        EXPECT_EQ(said(), path + ": 64x64\n");
        BackgroundProcess ffmpeg({.command = {"ffmpeg", "-y", "-v", "error", "-i", path, "-f",
                                              "rawvideo", "-pix_fmt", "gray", raw}});
        ASSERT_EQ(ffmpeg.wait(), 0);
        ASSERT_EQ(fileText(raw).size(), 64u * 64);
        const int brightness = static_cast<std::uint8_t>(fileText(raw)[1000]);
        EXPECT_NEAR(brightness, sharpens ? 255 : 0, 4);
    }
}

}  // namespace

}  // namespace orvel::phone
