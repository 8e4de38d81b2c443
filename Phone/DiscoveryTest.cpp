#include "Phone/Discovery.h"

#include <gmock/gmock.h>

#include "Tests/Support/AvahiDaemon.h"
#include "Tests/Support/ScopedEnvironment.h"

// For a build with the thread sanitizer: libdbus takes locks of its own in changing order.
extern "C" const char* __tsan_default_suppressions();
const char* __tsan_default_suppressions() {
    return "deadlock:libdbus-1.so";
}

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

// What a program of Avahi's own announces.
struct Announcement {
    Announcement(const PrivateBus& bus, const std::string& name, const std::string& type, int port)
        : program({.command = {"avahi-publish-service", name, type, std::to_string(port)},
                   .environment = bus.asSystem(),
                   .outputFile = folder / "log"}) {}
    TemporaryFolder folder;
    BackgroundProcess program;
};

// One bus for all: a process looks up the system bus's address once.
struct DiscoveryTest : testing::Test {
    static void SetUpTestSuite() { sharedBus = std::make_unique<PrivateBus>(); }
    static void TearDownTestSuite() { sharedBus.reset(); }
    static inline std::unique_ptr<PrivateBus> sharedBus;

    PrivateBus& bus = *sharedBus;
    ScopedEnvironment address{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()};
};

TEST_F(DiscoveryTest, findsEachAgentOnceWithItsAddresses) {
    AvahiDaemon daemon(bus);
    const Announcement desk(bus, "Ayşe's Desk", "_orvel._tcp", 47800),
        lap(bus, "Lap", "_orvel._tcp", 50001), printer(bus, "Printer", "_ipp._tcp", 631);
    Discovered discovered;
    ASSERT_TRUE(eventually([&] {
        discovered = discoverAgents(5s);
        return discovered.agents.size() == 2;
    })) << discovered.problem;
    EXPECT_EQ(discovered.problem, "");
    EXPECT_EQ(discovered.agents[0].name, "Ayşe's Desk");
    EXPECT_EQ(discovered.agents[0].port, 47800);
    EXPECT_EQ(discovered.agents[1].name, "Lap");
    EXPECT_EQ(discovered.agents[1].port, 50001);
    for (const auto& agent : discovered.agents) {
        EXPECT_FALSE(agent.hostName.empty());
        EXPECT_THAT(agent.addresses, testing::Not(IsEmpty()));
    }
}

TEST_F(DiscoveryTest, nobodyThereIsKnownWithinItsTime) {
    AvahiDaemon daemon(bus);
    const auto begin = std::chrono::steady_clock::now();
    const Discovered discovered = discoverAgents(500ms);
    EXPECT_THAT(discovered.agents, IsEmpty());
    EXPECT_EQ(discovered.problem, "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST_F(DiscoveryTest, withoutAResponderItSaysSo) {
    const Discovered discovered = discoverAgents(500ms);
    EXPECT_THAT(discovered.agents, IsEmpty());
    EXPECT_NE(discovered.problem, "");
}

}  // namespace

}  // namespace orvel::phone
