#include "OrvelAgent/Platform/Linux/AvahiAdvertiser.h"

#include <gmock/gmock.h>

#include "Tests/Support/AvahiDaemon.h"
#include "Tests/Support/ScopedEnvironment.h"

namespace orvel {
namespace {

using Service = AvahiDaemon::Service;
using testing::ElementsAre;

constexpr const char* type = "_orvel._tcp";

// One bus for all: a process looks up the system bus's address once.
struct AvahiAdvertiserTest : testing::Test {
    static void SetUpTestSuite() { sharedBus = std::make_unique<PrivateBus>(); }
    static void TearDownTestSuite() { sharedBus.reset(); }
    static inline std::unique_ptr<PrivateBus> sharedBus;

    PrivateBus& bus = *sharedBus;
    ScopedEnvironment address{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()};

    static testing::AssertionResult shows(const AvahiDaemon& daemon,
                                          const std::vector<std::string>& names) {
        std::vector<std::string> seen;
        const bool same = eventually([&] {
            seen.clear();
            for (const auto& service : daemon.browse(type))
                seen.push_back(service.name);
            return seen == names;
        });
        if (same) return testing::AssertionSuccess();
        return testing::AssertionFailure() << testing::PrintToString(seen);
    }
};

TEST_F(AvahiAdvertiserTest, theServiceIsSeenUntilItIsStopped) {
    AvahiDaemon daemon(bus);
    AvahiAdvertiser advertiser;
    advertiser.start("Ayşe's Computer; really", type, 47800);
    ASSERT_TRUE(shows(daemon, {"Ayşe's Computer; really"}));
    EXPECT_THAT(daemon.browse(type),
                ElementsAre(Service{"Ayşe's Computer; really", type, 47800, ""}));
    advertiser.stop();
    EXPECT_TRUE(shows(daemon, {}));
}

TEST_F(AvahiAdvertiserTest, aNameThatIsTakenGetsANumber) {
    AvahiDaemon daemon(bus);
    AvahiAdvertiser first, second, third;
    first.start("Computer", type, 47800);
    ASSERT_TRUE(shows(daemon, {"Computer"}));
    second.start("Computer", type, 47801);
    ASSERT_TRUE(shows(daemon, {"Computer", "Computer #2"}));
    third.start("Computer", type, 47802);
    EXPECT_TRUE(shows(daemon, {"Computer", "Computer #2", "Computer #3"}));
}

TEST_F(AvahiAdvertiserTest, theServiceIsBackWhenTheDaemonIs) {
    AvahiAdvertiser advertiser;
    advertiser.start("Computer", type, 47800);
    AvahiDaemon daemon(bus);
    ASSERT_TRUE(shows(daemon, {"Computer"})) << "the daemon started later";
    for (int round = 0; round < 2; ++round) {
        daemon.stop();
        daemon.start();
        EXPECT_TRUE(shows(daemon, {"Computer"}));
    }
}

TEST_F(AvahiAdvertiserTest, theServiceIsBackWhenTheBusIs) {
    bus.stop();
    AvahiAdvertiser advertiser;
    advertiser.start("Computer", type, 47800);
    bus.start();
    AvahiDaemon daemon(bus);
    ASSERT_TRUE(shows(daemon, {"Computer"}));
    bus.stop();
    daemon.stop();
    bus.start();
    daemon.start();
    EXPECT_TRUE(shows(daemon, {"Computer"}));
}

TEST_F(AvahiAdvertiserTest, stopsAtAnyMoment) {
    for (int round = 0; round < 20; ++round) {
        AvahiAdvertiser advertiser;
        if (round % 4 != 0) advertiser.start("Computer", type, 47800);
        for (int spin = 0; spin < round * round; ++spin)
            sched_yield();
        if (round % 2) advertiser.stop();
        advertiser.stop();
    }
    AvahiDaemon daemon(bus);
    for (int round = 0; round < 20; ++round) {
        AvahiAdvertiser advertiser;
        advertiser.start("Computer", type, 47800);
        for (int spin = 0; spin < round * round * 4; ++spin)
            sched_yield();
    }
    EXPECT_TRUE(shows(daemon, {}));
}

struct NameRow {
    const char* name;
    std::string given, want;
};

const std::string sixty(60, 'x');
const NameRow nameRows[] = {
    {"short", "Ayşe", "Ayşe"},
    {"exactly 63 bytes", sixty + "abc", sixty + "abc"},
    {"one more", sixty + "abcd", sixty + "abc"},
    {"a character that ends at 63", sixty + "aş", sixty + "aş"},
    {"a character across the limit", sixty + "abş", sixty + "ab"},
    {"four bytes across the limit", sixty + "😀", sixty},
    {"no UTF-8", "a\xFFz", "a\uFFFDz"},
};

TEST(AvahiAdvertiser, cutsNamesBetweenCharacters) {
    for (const auto& row : nameRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(AvahiAdvertiser::serviceName(row.given), row.want);
    }
}

}  // namespace
}  // namespace orvel
