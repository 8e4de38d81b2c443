#include "OrvelAgent/Platform/MacOS/Checks/MacFindings.h"

#include <gmock/gmock.h>

namespace orvel {
namespace {

using Level = Finding::Level;
using testing::HasSubstr;

struct Row {
    const char* what;
    Check::Findings findings;
    Level level;
    const char* text;
    const char* advice;
};

TEST(MacFindings, eachStateOfAMacHasItsLevelAndItsAdvice) {
    const Examined idle{{}, false, 47800}, running{{}, true, 47800};
    Examined quiet = running;
    quiet.announced = false;
    const Examined apart{{"/state"}, true, 47800};
    const Row rows[] = {
        {"all granted", displayFindings({2, true, true}, idle), Level::ok, "2 displays", ""},
        {"no display", displayFindings({0, true, true}, running), Level::problem, "no display",
         "display"},
        {"nothing granted, from a terminal", displayFindings({1, false, false}, idle),
         Level::warning, "1 display; ",
         "> Screen Recording and Accessibility: switch on Orvel Agent, then start it again."},
        {"one lacks, and the agent knows better", displayFindings({1, true, false}, running),
         Level::ok, "1 display", "> Accessibility: switch on Orvel Agent."},
        {"DNS-SD", announcementFindings(true, running), Level::ok, "answers", ""},
        {"no DNS-SD", announcementFindings(false, idle), Level::warning, "does not answer",
         "Restart"},
        {"not announced", announcementFindings(false, quiet), Level::ok, "not to announce", ""},
        {"firewall off", firewallFindings(MacFirewall::off), Level::ok, "none", ""},
        {"firewall on", firewallFindings(MacFirewall::on), Level::ok, "is on", ""},
        {"all blocked", firewallFindings(MacFirewall::blocksAll), Level::warning, "blocks all",
         "Options"},
        {"unknown firewall", firewallFindings(std::nullopt), Level::ok, "cannot", ""},
        {"state", stateFindings({true, 1 << 30}, running), Level::ok, "keychain", ""},
        {"state apart", stateFindings({true, std::nullopt}, apart), Level::ok, "folder", ""},
        {"no identity yet", stateFindings({false, std::nullopt}, idle), Level::ok, "keychain", ""},
        {"no identity", stateFindings({false, std::nullopt}, running), Level::problem,
         "pair anew after each start", "Keychain Access"},
        {"full disk", stateFindings({true, 1000}, apart), Level::problem, "full", "room"},
        {"signed", bundleFindings({true, true}), Level::ok, "signed", ""},
        {"sealed only", bundleFindings({true, false}), Level::warning, "not signed", "certificate"},
        {"bare program", bundleFindings({false, true}), Level::warning, "outside", ".app"},
        {"at login", startFindings(MacLogin::enabled, idle), Level::ok, "at login", ""},
        {"withdrawn", startFindings(MacLogin::withdrawn, idle), Level::warning, "forbid",
         "Login Items"},
        {"by hand", startFindings(MacLogin::off, idle), Level::warning, "by hand only", "panel"},
        {"apart", startFindings(MacLogin::off, apart), Level::ok, "by hand", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        ASSERT_EQ(row.findings.size(), 1u);
        const Finding& found = row.findings.front();
        EXPECT_EQ(found.level, row.level);
        EXPECT_THAT(found.text, HasSubstr(row.text));
        if (*row.advice) {
            EXPECT_THAT(found.advice, HasSubstr(row.advice));
        } else {
            EXPECT_EQ(found.advice, "");
        }
    }
}

TEST(MacFindings, theFirewallsOwnWords) {
    EXPECT_EQ(firewallFromText("Firewall is disabled. (State = 0)\n"), MacFirewall::off);
    EXPECT_EQ(firewallFromText("Firewall is enabled. (State = 1)\n"), MacFirewall::on);
    EXPECT_EQ(firewallFromText("Firewall is blocking all non-essential incoming connections. "
                               "(State = 2)\n"),
              MacFirewall::blocksAll);
    for (const char* other : {"", "State = ", "State = 7", "state 1"}) {
        EXPECT_EQ(firewallFromText(other), std::nullopt) << other;
    }
}

}  // namespace
}  // namespace orvel
