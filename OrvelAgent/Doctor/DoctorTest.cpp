#include "OrvelAgent/Doctor/Doctor.h"

#include <gmock/gmock.h>

#include <future>

#include "OrvelAgent/Doctor/DoctorCommand.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Level = Finding::Level;
using Status = AgentCore::Status;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Doctor, findingsComeInTheOrderOfTheChecksThatLookSideBySide) {
    // Each waits for the other.
    std::promise<void> first, second;
    const auto checkOf = [](const char* subject, std::promise<void>& mine,
                            std::promise<void>& theirs) {
        return Check::of(subject, [=, &mine, &theirs] {
            mine.set_value();
            theirs.get_future().wait();
            return Check::Findings{{Level::ok, subject, "is well", ""}};
        });
    };
    const auto diagnosis =
        examine({checkOf("one", first, second), checkOf("two", second, first)}, 20s);
    EXPECT_THAT(diagnosis.findings, ElementsAre(Finding{Level::ok, "one", "is well", ""},
                                                Finding{Level::ok, "two", "is well", ""}));
    EXPECT_FALSE(diagnosis.hasProblems());
}

TEST(Doctor, oneThatHangsIsAWarningAndHoldsNobody) {
    const auto release = std::make_shared<std::promise<void>>();
    const auto hung = std::make_shared<std::shared_future<void>>(release->get_future());
    const auto gone = std::make_shared<std::promise<void>>();
    auto left = gone->get_future();
    const auto diagnosis =
        examine({Check::of("well",
                           [] {
                               return Check::Findings{{Level::ok, "well", "", ""}};
                           }),
                 Check{"hung",
                       [hung, gone](const Check::Report& report) {
                           hung->wait();
                           report({});  // too late, and harmless
                           gone->set_value();
                       }},
                 Check{"tidying",
                       [hung](const Check::Report& report) {
                           report({{Level::problem, "tidying", "is bad", "act"}});
                           hung->wait();
                       }}},
                200ms);
    ASSERT_EQ(diagnosis.findings.size(), 3u);
    EXPECT_EQ(diagnosis.findings[1].level, Level::warning);
    EXPECT_EQ(diagnosis.findings[1].subject, "hung");
    EXPECT_EQ(diagnosis.findings[2].text, "is bad");
    EXPECT_TRUE(diagnosis.isUnfinished);
    EXPECT_TRUE(diagnosis.hasProblems());
    release->set_value();
    left.wait();
}

TEST(Doctor, findingsReadAsLinesForPeopleAndAsJson) {
    const std::vector<Finding> findings{{Level::ok, "display", "X11", ""},
                                        {Level::problem, "state", "is full\x1b", "Make \"room\"."}};
    EXPECT_THAT(diagnosisLines(findings),
                ElementsAre("ok       display  X11", "problem  state    is full\\x1b",
                            "                  > Make \"room\".", "1 problem, 0 warnings."));
    EXPECT_EQ(findingLine(findings[1]),
              R"({"check":"state","level":"problem","text":"is full\u001b",)"
              R"("advice":"Make \"room\"."})");
}

AgentSnapshot snapshotWith(Status status, bool sees, bool types, std::uint16_t port = 0) {
    AgentSnapshot snapshot;
    snapshot.version = "1 (2)";
    snapshot.status = std::move(status);
    snapshot.permissions = {sees, types};
    if (port != 0) snapshot.listening = {port, "", true};
    return snapshot;
}

TEST(Doctor, theAgentIsJudgedByWhatItSays) {
    struct Row {
        std::optional<AgentSnapshot> agent;
        Level worst;
        const char* text;
    };
    const Row rows[] = {
        {std::nullopt, Level::warning, "does not run"},
        {snapshotWith({Status::Waiting{}}, true, true), Level::ok, "waiting for a phone"},
        {snapshotWith({Status::Failed{"in use"}}, true, true), Level::problem, "in use"},
        {snapshotWith({Status::Waiting{}}, false, true), Level::problem, "may not see the screen:"},
        {snapshotWith({Status::Waiting{}}, false, false), Level::problem,
         "may not see the screen, nor use pointer and keyboard:"},
        {snapshotWith({Status::Waiting{}}, true, false), Level::problem,
         "may not use pointer and keyboard:"},
    };
    for (const Row& row : rows) {
        const auto findings = agentFindings(row.agent);
        EXPECT_EQ(findings.back().level, row.worst) << row.text;
        EXPECT_THAT(findings.back().text, HasSubstr(row.text));
    }
}

TEST(Doctor, thePortIsTheUsualOneOrSomebodyHasIt) {
    struct Row {
        std::uint16_t agentsPort;  // 0: it does not run
        bool isTaken;
        Level level;
        const char* text;
    };
    const Row rows[] = {
        {0, false, Level::ok, "is free"},
        {0, true, Level::warning, "another program has port 47800"},
        {47800, true, Level::ok, "listens on port 47800"},
        {5000, false, Level::ok, "listens on port 5000"},
        {5000, true, Level::warning, "since another program has 47800"},
    };
    for (const Row& row : rows) {
        std::optional<AgentSnapshot> agent;
        if (row.agentsPort != 0) {
            agent = snapshotWith({Status::Waiting{}}, true, true, row.agentsPort);
        }
        const auto findings = portFindings(agent, row.isTaken);
        EXPECT_EQ(findings.front().level, row.level) << row.text;
        EXPECT_THAT(findings.front().text, HasSubstr(row.text));
    }
    EXPECT_EQ(portFindings(AgentSnapshot(), false).front().level, Level::problem);
}

}  // namespace
}  // namespace orvel
