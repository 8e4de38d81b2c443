#include "OrvelAgent/Control/AgentTexts.h"

#include <gmock/gmock.h>
#include <stdlib.h>
#include <time.h>

#include "OrvelAgent/App/HeadlessLines.h"
#include "OrvelKit/Base/Json.h"

namespace orvel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Status = AgentCore::Status;

const WallTime noon{std::chrono::seconds(1'700'000'000)};  // 2023-11-14 22:13:20 UTC

struct AgentTexts : testing::Test {
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

AgentSnapshot fullSnapshot() {
    AgentSnapshot snapshot;
    snapshot.version = "1.2 (3)";
    snapshot.name = "desk";
    snapshot.deviceID = "abcdefgh";
    snapshot.status = {Status::Connected{"Ayşe", true}};
    snapshot.listening = {47800, ""};
    snapshot.devices = {{"idone", "Ayşe", noon, std::nullopt}, {"two", "\x1b[2J", {}, noon}};
    snapshot.pairingCode = "123456";
    snapshot.pairingRequest = PairingRequest{"idnew", "New"};
    snapshot.relayConfigured = true;
    snapshot.relay = true;
    snapshot.remoteAccess = RemoteAccess::standby;
    snapshot.unlockedUntil = 1'700'003'600;
    snapshot.permissions = {true, false};
    snapshot.keepAwake = true;
    snapshot.history = {"new", "old"};
    return snapshot;
}

TEST_F(AgentTexts, aSnapshotComesBackAsItWasWritten) {
    const std::string line = fullSnapshot().line();
    EXPECT_EQ(AgentSnapshot::fromLine(line).line(), line);
    EXPECT_THAT(line, HasSubstr(R"("status":{"connected":{"name":"Ayşe","internet":true}})"));
    EXPECT_THAT(line, HasSubstr(R"("unlockedUntil":1700003600)"));
    EXPECT_EQ(AgentSnapshot::fromLine(AgentSnapshot().line()).listening.has_value(), false);
    for (const char* broken : {"", "{}", R"({"snapshot":{}})", R"({"snapshot":[]})"})
        EXPECT_THROW(AgentSnapshot::fromLine(broken), JsonError) << broken;
}

TEST_F(AgentTexts, statusSaysWhatMatters) {
    auto snapshot = fullSnapshot();
    const auto lines = statusLines(snapshot, noon);
    EXPECT_THAT(lines, Contains("state           connected: Ayşe (over the internet)"));
    EXPECT_THAT(lines, Contains(HasSubstr("123 456")));
    EXPECT_THAT(lines, Contains(HasSubstr("orvel-agent allow idnew")));
    EXPECT_THAT(lines, Contains("listens on      port 47800 of every address"));
    EXPECT_THAT(lines, Contains("remote access   standby: unlocked until 2023-11-14 23:13"));
    EXPECT_THAT(lines, Contains("relay           online"));
    EXPECT_THAT(lines, Contains("may see screen  yes"));
    EXPECT_THAT(lines, Contains("may type, click no"));

    const auto later = statusLines(snapshot, noon + std::chrono::hours(2));
    EXPECT_THAT(later, Contains("remote access   standby: locked until a phone unlocks it"));
    snapshot.remoteAccess = RemoteAccess::off;
    EXPECT_THAT(statusLines(snapshot, noon), Contains("relay           not used"));
    EXPECT_THAT(statusLines(AgentSnapshot(), noon), Contains("listens on      nothing"));
}

TEST_F(AgentTexts, devicesAreATableThatNoNameDisturbs) {
    EXPECT_THAT(deviceLines(fullSnapshot().devices),
                ElementsAre("ID     PAIRED            LAST SEEN         NAME",
                            "idone  2023-11-14 22:13  never             Ayşe",
                            "two    never             2023-11-14 22:13  \\x1b[2J"));
    EXPECT_THAT(deviceLines({}), ElementsAre("No phone is paired."));
}

TEST_F(AgentTexts, everyEventReadsAsALine) {
    const std::pair<std::string, const char*> rows[] = {
        {headlessLine::status({Status::Waiting{}}), "waiting for a phone"},
        {headlessLine::status({Status::Connected{"A", false}}), "connected: A (local network)"},
        {headlessLine::status({Status::Failed{"in use"}}), "failed: in use"},
        {headlessLine::listening(47800), "listening on port 47800"},
        {headlessLine::pairingCode("123456"), "a new phone wants to pair, its code: 123 456"},
        {headlessLine::pairingCode({}), "no phone wants to pair any more"},
        {headlessLine::pairingRequest(PairingRequest{"id", "A\n"}),
         "A\\n waits to be allowed: orvel-agent allow id"},
        {headlessLine::pairingRequest({}), "no phone waits to be allowed any more"},
        {headlessLine::relay(true), "relay: online"},
        {headlessLine::devices(fullSnapshot().devices), "paired phones: 2"},
        {R"({"history":["12:00 · new","old"]})", "12:00 · new"},
        {R"({"history":[]})", ""},
        {R"({"somethingNewer":{}})", ""},
    };
    for (const auto& [line, text] : rows)
        EXPECT_EQ(eventText(line), text) << line;
}

}  // namespace
}  // namespace orvel
