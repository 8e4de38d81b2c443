#include "Phone/AgentChoice.h"

#include <gmock/gmock.h>

namespace orvel::phone {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const KnownAgent desk{"deskdeskdeskdesk", Bytes(32, 1), "Desk", "192.0.2.1", 47800, {}};
const KnownAgent lap{"laplaplaplaplapl", Bytes(32, 2), "Lap", "192.0.2.2", 50000, {}};
const KnownAgent twin{"twintwintwintwin", Bytes(32, 3), "Lap", "192.0.2.3", 47800, {}};
const KnownAgent lost{"lostlostlostlost", Bytes(32, 4), "Lost", "", 0, {}};
const FoundAgent found{"Found", "found.local", 47801, {"192.0.2.9", "fe80::9%eth0"}};
const FoundAgent other{"Other", "other.local", 47800, {"192.0.2.8"}};

struct ChoiceRow {
    const char* name;
    AgentWish wish;
    std::vector<KnownAgent> known;
    std::vector<FoundAgent> network;
    std::vector<AgentAddress> addresses;  // empty: a problem, or none known
    std::string expected = {};            // the ID of the key that has to be there
    std::string problem = {};
    bool asksNetwork = false;
};

AgentWish wish(std::optional<std::string> host, std::optional<std::uint16_t> port,
               std::optional<std::string> agent, bool forPairing = false) {
    return {std::move(host), port, std::move(agent), forPairing};
}

const ChoiceRow choiceRows[] = {
    {"an address", wish("192.0.2.7", {}, {}), {desk}, {}, {{"192.0.2.7", 47800}}},
    {"an address with a port", wish("192.0.2.7", 5, {}), {}, {}, {{"192.0.2.7", 5}}},
    {"the address of a known one",
     wish("192.0.2.1", {}, {}),
     {lap, desk},
     {},
     {{"192.0.2.1", 47800}},
     desk.id},
    {"its host with another port", wish("192.0.2.1", 9, {}), {desk}, {}, {{"192.0.2.1", 9}}},
    {"nothing said: the one used last",
     wish({}, {}, {}),
     {lap, desk},
     {},
     {{"192.0.2.2", 50000}},
     lap.id},
    {"nothing said or known: the only one there",
     wish({}, {}, {}),
     {},
     {found},
     {{"192.0.2.9", 47801}, {"fe80::9%eth0", 47801}},
     "",
     "",
     true},
    {"several there",
     wish({}, {}, {}),
     {},
     {found, other},
     {},
     "",
     "choose one with --agent",
     true},
    {"nobody there", wish({}, {}, {}), {}, {}, {}, "", "No computer shows itself", true},
    {"a known name", wish({}, {}, "Desk"), {lap, desk}, {}, {{"192.0.2.1", 47800}}, desk.id},
    {"a known ID", wish({}, {}, lap.id), {desk, lap, twin}, {}, {{"192.0.2.2", 50000}}, lap.id},
    {"a name that two have", wish({}, {}, "Lap"), {lap, twin}, {}, {}, "", "by its ID"},
    {"a known name at a given address",
     wish("192.0.2.7", 5, "Desk"),
     {desk},
     {},
     {{"192.0.2.7", 5}},
     desk.id},
    {"an unknown name at a given address",
     wish("192.0.2.7", {}, "Who"),
     {desk},
     {},
     {},
     "",
     "No paired computer is called Who"},
    {"a name on the network",
     wish({}, {}, "Other"),
     {desk},
     {found, other},
     {{"192.0.2.8", 47800}},
     "",
     "",
     true},
    {"a name nobody has",
     wish({}, {}, "Who"),
     {desk},
     {found},
     {},
     "",
     "Found  (found.local",
     true},
    {"one without an address", wish({}, {}, "Lost"), {lost}, {}, {}, lost.id},
    {"pairing prefers what is new",
     wish({}, {}, {}, true),
     {desk},
     {found},
     {{"192.0.2.9", 47801}, {"fe80::9%eth0", 47801}},
     "",
     "",
     true},
    {"pairing with nobody there: the known one again",
     wish({}, {}, {}, true),
     {desk},
     {},
     {{"192.0.2.1", 47800}},
     desk.id,
     "",
     true},
};

TEST(AgentChoice, meansWhatEachRowSays) {
    for (const auto& row : choiceRows) {
        SCOPED_TRACE(row.name);
        bool asked = false;
        const AgentChoice choice = AgentChoice::make(row.wish, row.known, [&] {
            asked = true;
            return Discovered{row.network, ""};
        });
        EXPECT_EQ(asked, row.asksNetwork);
        EXPECT_EQ(choice.target.has_value(), row.problem.empty());
        EXPECT_THAT(choice.problem, HasSubstr(row.problem));
        if (!choice.target) continue;
        EXPECT_EQ(choice.target->addresses, row.addresses);
        EXPECT_EQ(choice.target->expected ? choice.target->expected->id : "", row.expected);
    }
}

TEST(AgentChoice, aNetworkThatCannotBeAskedIsSaid) {
    const auto silent = [] { return Discovered{{}, "Daemon not running"}; };
    for (const AgentWish& each : {wish({}, {}, {}), wish({}, {}, "Who")}) {
        const AgentChoice choice = AgentChoice::make(each, {}, silent);
        EXPECT_FALSE(choice.target);
        EXPECT_THAT(choice.problem, HasSubstr("Daemon not running"));
        EXPECT_THAT(choice.problem, HasSubstr("--host"));
    }
}

TEST(AgentChoice, onlyAComputerMeantAsSuchIsLookedUpWhenItHasMoved) {
    const auto nobody = [] { return Discovered{}; };
    EXPECT_EQ(AgentChoice::make(wish({}, {}, "Desk"), {desk}, nobody).target->lookUp, "Desk");
    EXPECT_EQ(AgentChoice::make(wish({}, {}, {}), {desk}, nobody).target->lookUp, "Desk");
    const auto byAddress = AgentChoice::make(wish("192.0.2.1", {}, {}), {desk}, nobody).target;
    EXPECT_FALSE(byAddress->lookUp);
    EXPECT_TRUE(byAddress->byAddressOnly);
    const auto both = AgentChoice::make(wish("192.0.2.1", {}, "Desk"), {desk}, nobody).target;
    EXPECT_FALSE(both->lookUp);
    EXPECT_FALSE(both->byAddressOnly);
}

}  // namespace

}  // namespace orvel::phone
