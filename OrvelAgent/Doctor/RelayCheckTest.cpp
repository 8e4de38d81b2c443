#include "OrvelAgent/Doctor/RelayCheck.h"

#include <gmock/gmock.h>

#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Relay/Inbox.h"
#include "Relay/RelayServer.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Level = Finding::Level;
using testing::HasSubstr;

RelayFacts goodFacts() {
    RelayFacts facts;
    facts.isConfigured = true;
    facts.host = "relay.example";
    facts.accountStatus = 400;
    facts.itsTime = WallTime(1'000'000s);
    facts.ourTime = WallTime(1'000'001s);
    facts.speaks = true;
    return facts;
}

TEST(RelayCheck, saysTheFirstThingThatIsInTheWay) {
    struct Row {
        const char* name;
        std::function<void(RelayFacts&)> change;
        RelayUse use;
        Level level;
        const char* text;
    };
    const auto nothing = [](RelayFacts&) {};
    const auto noName = [](RelayFacts& facts) {
        facts.nameProblem = "Host not found";
        facts.accountStatus.reset();
        facts.speaks = false;
    };
    const Row rows[] = {
        {"all good", nothing, {}, Level::ok, "relay.example answers"},
        {"the agent is there", nothing, {false, true}, Level::ok, "answers"},
        {"the agent is not", nothing, {false, false}, Level::warning, "the agent is not on it"},
        {"and need not be", nothing, {true, false}, Level::ok, "remote access is off"},
        {"none", [](RelayFacts& facts) { facts = {}; }, {}, Level::ok, "not configured"},
        {"no name", noName, {}, Level::problem, "Host not found"},
        {"no name, but nobody cares", noName, {true, {}}, Level::warning, "Host not found"},
        {"no connection",
         [](RelayFacts& facts) {
             facts.reachProblem = "Connection refused";
             facts.accountStatus.reset();
             facts.speaks = false;
         },
         {},
         Level::problem,
         "cannot be reached: Connection refused"},
        {"wrong key",
         [](RelayFacts& facts) { facts.accountStatus = 401; },
         {},
         Level::problem,
         "does not accept the key"},
        {"no websocket",
         [](RelayFacts& facts) {
             facts.speaks = false;
             facts.websocketProblem = "closed";
         },
         {},
         Level::problem,
         "no websocket through: closed"},
        {"accounts in trouble",
         [](RelayFacts& facts) { facts.accountStatus = 503; },
         {},
         Level::warning,
         "trouble with accounts"},
    };
    for (const Row& row : rows) {
        auto facts = goodFacts();
        row.change(facts);
        const auto findings = relayFindings(facts, row.use);
        ASSERT_EQ(findings.size(), 1u) << row.name;
        EXPECT_EQ(findings[0].level, row.level) << row.name;
        EXPECT_THAT(findings[0].text, HasSubstr(row.text)) << row.name;
        EXPECT_EQ(findings[0].advice.empty(), row.level == Level::ok) << row.name;
    }
    auto facts = goodFacts();
    facts.reachProblem = "certificate verify failed";
    EXPECT_THAT(relayFindings(facts, {})[0].advice, HasSubstr("ca-certificates"));
}

TEST(RelayCheck, theClockIsHeldAgainstTheRelays) {
    const std::pair<std::chrono::seconds, Level> rows[] = {
        {0s, Level::ok},        {29s, Level::ok},       {-30s, Level::warning},
        {119s, Level::warning}, {120s, Level::problem}, {-1'000'000s, Level::problem}};
    for (const auto& [ahead, level] : rows) {
        auto facts = goodFacts();
        facts.ourTime = *facts.itsTime + ahead;
        EXPECT_EQ(clockFindings(facts)[0].level, level) << ahead.count();
    }
    EXPECT_THAT(clockFindings(RelayFacts())[0].text, HasSubstr("not compared"));
}

TEST(RelayCheck, readsDatesOfHttp) {
    EXPECT_EQ(parseHttpDate("Sun, 06 Nov 1994 08:49:37 GMT"), WallTime(784'111'777s));
    for (const char* foreign : {"", "Sun, 06 Nov 1994 08:49:37", "Sun, 31 Nov 1994 08:49:37 GMT",
                                "Sun, 06 Foo 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                                "Sun, 06 Nov 1994 28:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 GMT+1"})
        EXPECT_EQ(parseHttpDate(foreign), std::nullopt) << foreign;
}

RelayFacts probed(const OrvelCloud& cloud) {
    RelayFacts found;
    int times = 0;
    probeRelay(cloud, {}, 20s, [&](const RelayFacts& facts) {
        found = facts;
        ++times;
    });
    EXPECT_EQ(times, 1);
    return found;
}

TEST(RelayCheck, looksWithoutARelayAndAtOneThatIsNotThere) {
    FakeDefaults defaults;
    EXPECT_FALSE(probed(OrvelCloud(defaults, std::nullopt)).isConfigured);

    // Nobody listens on port 1.
    const auto facts =
        probed(OrvelCloud(defaults, RelayProject::from("http://127.0.0.1:1", "key")));
    EXPECT_TRUE(facts.isConfigured);
    EXPECT_EQ(facts.nameProblem, "");
    EXPECT_NE(facts.reachProblem, "");
    EXPECT_EQ(facts.accountStatus, std::nullopt);
    EXPECT_FALSE(facts.speaks);
    EXPECT_NE(facts.websocketProblem, "");
}

TEST(RelayCheck, looksAtARealRelayWithTheRightAndTheWrongKey) {
    FakeDefaults defaults;
    SerialQueue relayQueue("relay");
    std::unique_ptr<RelayServer> relay;
    const auto onRelay = [&](const std::function<void()>& task) {
        Inbox<bool> done;
        relayQueue.post([&] {
            task();
            done.put(true);
        });
        ASSERT_TRUE(done.take());
    };
    std::string address;
    onRelay([&] {
        RelayServer::Options options;
        options.refusalDelay = 1ms;
        relay = std::make_unique<RelayServer>(relayQueue, options);
        address = "127.0.0.1:" + std::to_string(relay->port());
    });
    const auto good =
        probed(OrvelCloud(defaults, RelayProject::from("http://" + address, "local")));
    EXPECT_TRUE(good.speaks) << good.websocketProblem;
    EXPECT_TRUE(good.itsTime);
    EXPECT_EQ(relayFindings(good, {})[0].level, Level::ok) << relayFindings(good, {})[0].text;
    EXPECT_EQ(clockFindings(good)[0].level, Level::ok);
    const auto bad = probed(OrvelCloud(defaults, RelayProject::from("http://" + address, "other")));
    EXPECT_THAT(relayFindings(bad, {})[0].text, HasSubstr("does not accept the key"));
    // Signaling alone, as the user default has it.
    defaults.set("relayURL", "ws://" + address + "/realtime/v1/websocket");
    const auto alone = probed(OrvelCloud(defaults, std::nullopt));
    EXPECT_EQ(relayFindings(alone, {})[0].level, Level::ok) << relayFindings(alone, {})[0].text;
    onRelay([&] { relay.reset(); });
}

TEST(RelayCheck, aNameWithoutAnAddressIsSaid) {
    FakeDefaults defaults;
    const auto nameless =
        probed(OrvelCloud(defaults, RelayProject::from("http://nowhere.invalid", "key")));
    EXPECT_NE(nameless.nameProblem, "");
}

}  // namespace
}  // namespace orvel
