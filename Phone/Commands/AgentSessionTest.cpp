#include "Phone/Commands/AgentSession.h"

#include <gmock/gmock.h>

#include "Phone/PhoneProgramForTests.h"

namespace orvel::phone {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

using AgentSessionTest = PhoneProgramTest;

struct RejectionRow {
    Rejection reason;
    const char* says;
};

const RejectionRow rejectionRows[] = {
    {Rejection::pinRequired, "not paired with Desk"},
    {Rejection::wrongPin, "does not accept the code"},
    {Rejection::phoneOutdated, "too old"},
    {Rejection::permissionsMissing, "may not show its screen"},
    {Rejection::versionMismatch, "another version"},
};

TEST_F(AgentSessionTest, eachRefusalIsASentence) {
    for (const auto& row : rejectionRows) {
        SCOPED_TRACE(rawValue(row.reason));
        AgentForTests agent([&](AgentEnd& end) {
            end.secure();
            end.receive<Hello>();
            end.send({Control::Rejected{row.reason}});
        });
        know(agent);
        for (const char* command : {"watch", "displays", "ping"}) {
            EXPECT_EQ(runAt(agent, {command}), 1);
            EXPECT_THAT(remarked(), HasSubstr(row.says));
        }
    }
}

TEST_F(AgentSessionTest, anUnknownComputerIsToldNothing) {
    bool somethingCame = false;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        try {
            end.receiveFrame();
            somethingCame = true;
        } catch (const AgentEnd::Gone&) {
        }
    });
    for (const char* command : {"watch", "displays", "ping"}) {
        EXPECT_EQ(runAt(agent, {command}), 1);
        EXPECT_THAT(remarked(), HasSubstr("orvel-phone pair"));
    }
    agent.finish();
    EXPECT_FALSE(somethingCame);
}

TEST_F(AgentSessionTest, anotherKeyWhereAKnownComputerWasIsRefusedLoudly) {
    bool somethingCame = false;
    auto agent = std::make_unique<AgentForTests>([](AgentEnd&) {});
    know(*agent);
    const std::string before = agent->deviceID();
    const std::uint16_t port = agent->port();
    agent.reset();
    AgentForTests other(
        [&](AgentEnd& end) {
            end.secure();
            try {
                end.receiveFrame();
                somethingCame = true;
            } catch (const AgentEnd::Gone&) {
            }
        },
        {PrivateKey::generate()}, port);
    const std::vector<std::vector<std::string>> ways = {
        {"ping"},                                                             // the one used last
        {"--agent", "Desk", "watch"},                                         // by its name
        {"--host", "127.0.0.1", "--port", std::to_string(port), "displays"},  // by its address
        {"--host", "127.0.0.1", "--port", std::to_string(port), "pair"},
        {"--agent", before, "pair", "--replace"},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(testing::PrintToString(way));
        EXPECT_EQ(run(way), 1);
        EXPECT_THAT(remarked(), AllOf(StartsWith("DANGER"), HasSubstr(before),
                                      HasSubstr(other.deviceID()), HasSubstr("in between")));
    }
    other.finish();
    EXPECT_FALSE(somethingCame);
    ASSERT_THAT(known(), SizeIs(1));
    EXPECT_EQ(known()[0].id, before);
}

TEST_F(AgentSessionTest, theUserMayLetAnotherComputerTakeAnAddress) {
    auto agent = std::make_unique<AgentForTests>([](AgentEnd&) {});
    know(*agent);
    const std::uint16_t port = agent->port();
    agent.reset();
    AgentForTests other(
        [&](AgentEnd& end) {
            end.secure();
            type(end.code + "\n");
            end.receive<Hello>();
            end.send({end.welcome()});
            end.waitForEnd();
        },
        {PrivateKey::generate()}, port);
    EXPECT_EQ(runAt(other, {"pair", "--replace"}), 0) << remarked();
    ASSERT_THAT(known(), SizeIs(2));
    EXPECT_EQ(known()[0].id, other.deviceID());
    EXPECT_EQ(known()[1].host, "");
}

TEST_F(AgentSessionTest, aComputerThatMovedIsFoundByItsName) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.waitForEnd();
    });
    auto before = std::make_unique<AgentForTests>([](AgentEnd&) {}, agent.identity);
    know(*before);
    before.reset();
    EXPECT_EQ(run({"displays"}), 1) << "the network does not show it";
    network.agents = {{"Desk", "desk.local", agent.port(), {"127.0.0.1"}}};
    EXPECT_EQ(run({"displays"}), 0) << remarked();
    EXPECT_EQ(known()[0].port, agent.port());
}

TEST_F(AgentSessionTest, aWelcomeWithAnotherKeyIsRefused) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        Welcome welcome = end.welcome();
        welcome.agentKey->at(5) ^= 1;
        end.send({welcome});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"displays"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("another key"));
}

}  // namespace

}  // namespace orvel::phone
