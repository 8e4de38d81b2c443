#include "Phone/PhoneProgramForTests.h"

#include <gmock/gmock.h>

namespace orvel::phone {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

using PairTest = PhoneProgramTest;

TEST_F(PairTest, theRightDigitsPairAndAreRemembered) {
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        type("  what?\n" + end.code.substr(0, 3) + " " + end.code.substr(3) + "\n");
        const Hello hello = end.receive<Hello>();
        EXPECT_EQ(hello.pin, end.code);
        EXPECT_EQ(hello.deviceName, "Test phone");
        EXPECT_EQ(hello.deviceID, Identity::fingerprint(end.phoneKey));
        EXPECT_EQ(hello.version, 2);
        EXPECT_TRUE(err->waitFor("Waiting for the computer"));  // somebody has to agree there
        end.send({end.welcome()});
        end.waitForEnd();
    });
    EXPECT_EQ(runAt(agent, {"pair"}), 0) << remarked();
    EXPECT_EQ(said(), "Paired with Desk.\n");
    EXPECT_THAT(remarked(), HasSubstr("not six digits"));
    ASSERT_THAT(known(), SizeIs(1));
    EXPECT_EQ(known()[0].id, agent.deviceID());
    EXPECT_EQ(known()[0].publicKey, agent.identity.publicKey());
    EXPECT_EQ(known()[0].name, "Desk");
    EXPECT_EQ(known()[0].port, agent.port());
}

TEST_F(PairTest, otherDigitsNeverLeave) {
    for (const bool asOption : {false, true}) {
        SCOPED_TRACE(asOption);
        bool somethingCame = false;
        AgentForTests agent([&](AgentEnd& end) {
            end.secure();
            std::string other = end.code;
            other[5] = other[5] == '0' ? '1' : '0';
            type(other + "\n");
            try {
                end.receiveFrame();
                somethingCame = true;
            } catch (const AgentEnd::Gone&) {
            }
        });
        // As an option they cannot be right: the digits are new for each connection.
        EXPECT_EQ(runAt(agent, asOption ? std::vector<std::string>{"pair", "--code", "123456"}
                                        : std::vector<std::string>{"pair"}),
                  1);
        agent.finish();
        EXPECT_FALSE(somethingCame);
        EXPECT_THAT(remarked(), AllOf(HasSubstr("in between"), HasSubstr("not sent")));
        EXPECT_THAT(known(), IsEmpty());
    }
}

TEST_F(PairTest, noDigitsAreNoPairing) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        end.waitForEnd();
    });
    endTyping();
    EXPECT_EQ(runAt(agent, {"pair"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("No digits"));
}

TEST_F(PairTest, aComputerThatStopsWaitingEndsTheQuestion) {
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        EXPECT_TRUE(err->waitFor("six digits"));
    });
    EXPECT_EQ(runAt(agent, {"pair"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("ended the connection"));
}

TEST_F(PairTest, aComputerThatForgotThisPhoneIsPairedAgain) {
    int connections = 0;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        if (++connections == 2) type(end.code + "\n");
        if (end.receive<Hello>().pin == end.code) {
            end.send({end.welcome()});
        } else {
            end.send({Control::Rejected{Rejection::pinRequired}});
        }
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"--json", "pair"}), 0) << remarked();
    EXPECT_EQ(said(), "{\"paired\":\"Desk\",\"id\":\"" + agent.deviceID() + "\"}\n");
}

TEST_F(PairTest, aComputerThatKnowsThisPhoneIsNotPairedTwice) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        EXPECT_FALSE(end.receive<Hello>().pin);
        end.send({end.welcome()});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"pair"}), 0);
    EXPECT_EQ(said(), "Already paired with Desk.\n");
}

}  // namespace

}  // namespace orvel::phone
