// What the doctor makes of each state of this system, and what it sees of real servers.

#include <gmock/gmock.h>

#include "OrvelAgent/Platform/Linux/Checks/AnnouncementCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/DesktopCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/DisplayCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/FirewallCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/SoundCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/StateCheck.h"
#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "OrvelAgent/Platform/ServiceAdvertiser.h"
#include "Tests/Support/AvahiDaemon.h"
#include "Tests/Support/BusService.h"
#include "Tests/Support/KeyringDaemon.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/SoundServer.h"
#include "Tests/Support/XServer.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Level = Finding::Level;
using Service = DesktopFacts::Service;
using SecretChoice = DesktopFacts::SecretChoice;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

auto isFinding(Level level, const std::string& text) {
    return AllOf(Field(&Finding::level, level), Field(&Finding::text, HasSubstr(text)));
}
// Whoever is told of trouble is told what to do.
void expectAdvice(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        EXPECT_TRUE(finding.level == Level::ok || !finding.advice.empty()) << finding.text;
    }
}

TEST(DisplayCheck, judges) {
    struct Row {
        DisplayFacts facts;
        Level level;
        const char* text;
    };
    const Row rows[] = {
        {{":0", false, true, {}}, Level::ok, "X11 on :0"},
        {{"", false, false, {}}, Level::problem, "no display"},
        {{":9", false, false, {}}, Level::problem, ":9 does not answer"},
        {{":0", true, true, {}}, Level::problem, "Wayland"},
        {{":0", false, true, {"DAMAGE"}}, Level::problem, "no DAMAGE"},
        {{":0", false, true, {"XTEST"}}, Level::problem, "no XTEST"},
        {{":0", false, true, {"MIT-SHM"}}, Level::warning, "no MIT-SHM"},
    };
    for (const Row& row : rows) {
        const auto findings = displayFindings(row.facts);
        EXPECT_THAT(findings, ElementsAre(isFinding(row.level, row.text)));
        expectAdvice(findings);
    }
}

TEST(DisplayCheck, looksAtRealServers) {
    const ScopedEnvironment noWayland("WAYLAND_DISPLAY", std::nullopt);
    const ScopedEnvironment noType("XDG_SESSION_TYPE", std::nullopt);
    XServer whole;
    {
        const ScopedEnvironment display("DISPLAY", whole.display());
        const auto facts = DisplayFacts::look();
        EXPECT_TRUE(facts.answers);
        EXPECT_THAT(facts.missing, IsEmpty());
    }
    XServer less(XServer::Options{
        .arguments = {"-extension", "DAMAGE", "-extension", "XTEST", "-extension", "MIT-SHM"}});
    {
        const ScopedEnvironment display("DISPLAY", less.display());
        EXPECT_THAT(DisplayFacts::look().missing, ElementsAre("DAMAGE", "XTEST", "MIT-SHM"));
        less.kill();
        EXPECT_FALSE(DisplayFacts::look().answers);
    }
    const ScopedEnvironment none("DISPLAY", std::nullopt);
    const ScopedEnvironment wayland("XDG_SESSION_TYPE", "wayland");
    EXPECT_EQ(DisplayFacts::look().display, "");
    EXPECT_TRUE(DisplayFacts::look().isWayland);
}

TEST(SoundCheck, judgesAndLooksAtARealServer) {
    EXPECT_THAT(soundFindings({}), ElementsAre(isFinding(Level::warning, "hear nothing")));
    EXPECT_THAT(soundFindings({true, "S", ""}),
                ElementsAre(isFinding(Level::warning, "no output")));
    EXPECT_THAT(soundFindings({true, "S", "auto_null"}),
                ElementsAre(isFinding(Level::warning, "no sound card")));
    EXPECT_THAT(soundFindings({true, "S", "speaker"}),
                ElementsAre(isFinding(Level::ok, "S, output speaker")));
    {
        const ScopedEnvironment none("PULSE_SERVER", "unix:/nonexistent");
        EXPECT_FALSE(SoundFacts::look(20s).answers);
    }
    if (!SoundServer::isInstalled()) GTEST_SKIP() << "another sound server is installed";
    SoundServer server;
    server.addOutput("speaker");
    const ScopedEnvironment address("PULSE_SERVER", server.address());
    const auto facts = SoundFacts::look(20s);
    EXPECT_TRUE(facts.answers);
    EXPECT_EQ(facts.output, "speaker");
}

TEST(AnnouncementCheck, judgesAndLooksAtARealDaemon) {
    const Examined runs{.state = {}, .runs = true, .port = 47800, .announced = true};
    const Examined hidden{.state = {}, .runs = true, .port = 47800, .announced = false};
    const Examined rests{.state = {}, .runs = false, .port = 47800, .announced = true};
    struct Row {
        AnnouncementFacts facts;
        Examined examined;
        Level level;
        const char* text;
    };
    const Row rows[] = {
        {{true, {47800}}, runs, Level::ok, "announced"},
        {{true, {5000}}, runs, Level::warning, "does not show the agent"},
        {{false, {}}, runs, Level::warning, "does not answer"},
        {{false, {}}, rests, Level::warning, "does not answer"},
        {{true, {}}, rests, Level::ok, "answers"},
        {{false, {}}, hidden, Level::ok, "told not to"},
    };
    for (const Row& row : rows) {
        const auto findings = announcementFindings(row.facts, row.examined);
        EXPECT_THAT(findings, ElementsAre(isFinding(row.level, row.text)));
        expectAdvice(findings);
    }

    PrivateBus bus;
    const ScopedEnvironment address("DBUS_SYSTEM_BUS_ADDRESS", bus.address());
    EXPECT_FALSE(AnnouncementFacts::look(47800, 20s).daemonAnswers);
    AvahiDaemon daemon(bus);
    const auto advertiser = ServiceAdvertiser::create();
    advertiser->start("Computer", "_orvel._tcp", 47800);
    EXPECT_TRUE(eventually([&] { return !daemon.browse("_orvel._tcp").empty(); }));
    const auto facts = AnnouncementFacts::look(47800, 20s);
    EXPECT_TRUE(facts.daemonAnswers);
    EXPECT_THAT(facts.ports, Contains(47800));
}

DesktopFacts wholeDesktop() {
    DesktopFacts facts;
    facts.hasBus = facts.hasDisplay = facts.hasTray = true;
    facts.secrets = facts.accessibility = facts.notifications = Service::running;
    facts.secretsLocked = false;
    facts.secretChoice = SecretChoice::desktop;
    return facts;
}

TEST(DesktopCheck, judges) {
    for (const Finding& finding : desktopFindings(wholeDesktop()))
        EXPECT_EQ(finding.level, Level::ok) << finding.text;

    struct Row {
        std::function<void(DesktopFacts&)> change;
        Level level;
        const char* text;
    };
    const Row rows[] = {
        {[](DesktopFacts& facts) { facts.secretsLocked = true; }, Level::problem, "is locked"},
        {[](DesktopFacts& facts) { facts.secrets = Service::absent; }, Level::problem,
         "does not run"},
        {[](DesktopFacts& facts) { facts.accessibility = Service::absent; }, Level::warning,
         "no accessibility bus"},
        {[](DesktopFacts& facts) { facts.notifications = Service::absent; }, Level::warning,
         "nobody shows them"},
        {[](DesktopFacts& facts) { facts.hasTray = false; }, Level::warning, "a window instead"},
        {[](DesktopFacts& facts) { facts.hasBus = false; }, Level::warning, "no notifications"},
    };
    for (const Row& row : rows) {
        auto facts = wholeDesktop();
        row.change(facts);
        const auto findings = desktopFindings(facts);
        EXPECT_THAT(findings, Contains(isFinding(row.level, row.text)));
        expectAdvice(findings);
    }
    // What was chosen as files needs no desktop; a machine without a screen needs no tray.
    DesktopFacts server;
    server.secretChoice = SecretChoice::files;
    EXPECT_THAT(desktopFindings(server),
                ElementsAre(isFinding(Level::warning, "none"), isFinding(Level::ok, "in files")));
}

TEST(DesktopCheck, looksAtARealBusAndAKeyring) {
    TemporaryFolder folder;
    const ScopedEnvironment data("XDG_DATA_HOME", folder / "data");
    const ScopedEnvironment display("DISPLAY", std::nullopt);
    PrivateBus bus;
    {
        const ScopedEnvironment none("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
        EXPECT_FALSE(DesktopFacts::look({}, 20s).hasBus);
    }
    const ScopedEnvironment session("DBUS_SESSION_BUS_ADDRESS", bus.address());
    auto facts = DesktopFacts::look({}, 20s);
    EXPECT_TRUE(facts.hasBus);
    EXPECT_EQ(facts.secrets, Service::absent);
    EXPECT_EQ(facts.notifications, Service::absent);
    EXPECT_EQ(facts.secretChoice, SecretChoice::none);
    EXPECT_FALSE(facts.hasTray);

    std::filesystem::create_directories(folder / "data/orvel");
    writeFile(folder / "data/orvel/secret-store", "secret-service\n");
    KeyringDaemon keyring(bus);
    BusService notifications(bus, "notification_daemon", "org.freedesktop.Notifications");
    facts = DesktopFacts::look({}, 20s);
    EXPECT_EQ(facts.secrets, Service::running);
    EXPECT_EQ(facts.secretsLocked, false);
    EXPECT_EQ(facts.secretChoice, SecretChoice::desktop);
    EXPECT_EQ(facts.notifications, Service::running);
    EXPECT_EQ(DesktopFacts::look({folder / "own"}, 20s).secretChoice, SecretChoice::files);

    keyring.stop();
    keyring.startLocked();
    EXPECT_EQ(DesktopFacts::look({}, 20s).secretsLocked, true);
}

TEST(FirewallCheck, readsRules) {
    struct Row {
        const char* rules;
        std::optional<bool> letsThrough;
    };
    const Row rows[] = {
        {"", std::nullopt},
        {"table inet filter {\n\tchain input {\n\t\ttype filter hook input priority filter; policy "
         "accept;\n\t}\n}",
         std::nullopt},
        {"chain input {\n type filter hook input priority 0; policy drop;\n tcp dport 22 accept\n}",
         false},
        {"chain input {\n type filter hook input priority 0; policy drop;\n tcp dport { 22, 47800 "
         "} "
         "accept\n}",
         true},
        {"chain input {\n type filter hook input priority 0; policy drop;\n tcp dport 47800 "
         "accept\n}",
         true},
        {"chain input {\n type filter hook input priority 0; policy drop;\n tcp dport 478001 "
         "accept\n}",
         false},
        {"chain input {\n type filter hook input priority 0; policy accept;\n reject\n}", false},
        {"chain forward {\n type filter hook forward priority 0; policy drop;\n drop\n}",
         std::nullopt},
    };
    for (const Row& row : rows)
        EXPECT_EQ(nftRulesLetThrough(row.rules, 47800), row.letsThrough) << row.rules;
}

TEST(FirewallCheck, looksAtUfwFirewalldAndNftablesAndNamesTheCommand) {
    TemporaryFolder root;
    std::filesystem::create_directories(root / "etc/ufw");
    PrivateBus bus;
    std::optional<std::string> rules;
    std::vector<std::string> asked;
    const FirewallFacts::Sources sources{
        root.path.string(), bus.address(), [&](const auto& command) {
            asked.push_back(command.front());
            return command.front() == "systemctl" ? std::optional<std::string>("active\n") : rules;
        }};
    const auto only = [&] { return firewallFindings(FirewallFacts::look(sources, 47800), 47800); };

    EXPECT_THAT(only(), ElementsAre(isFinding(Level::warning, "nftables may keep")));
    rules = "table inet filter {\n}";
    EXPECT_THAT(only(), ElementsAre(isFinding(Level::ok, "none in the way")));

    writeFile(root / "etc/ufw/ufw.conf", "# comment\nENABLED=yes\n");
    EXPECT_THAT(only(), ElementsAre(isFinding(Level::warning, "ufw may keep")));
    writeFile(root / "etc/ufw/user.rules",
              "### tuple ### allow tcp 22 0.0.0.0/0 any 0.0.0.0/0 in\n");
    EXPECT_THAT(only(), ElementsAre(isFinding(Level::warning, "ufw keeps phones away")));
    EXPECT_EQ(only()[0].advice, "sudo ufw allow 47800/tcp");
    writeFile(root / "etc/ufw/user.rules",
              "### tuple ### allow tcp 47800 0.0.0.0/0 any 0.0.0.0/0 in\n");
    EXPECT_THAT(only(), ElementsAre(isFinding(Level::ok, "ufw lets phones through")));
    writeFile(root / "etc/ufw/ufw.conf", "ENABLED=no\n");

    BusService firewalld(bus, "org.fedoraproject.FirewallD1", "/org/fedoraproject/FirewallD1",
                         "org.fedoraproject.FirewallD1.zone");
    firewalld.addMethod("queryPort", "sss", "b", "ret = args[1] == '47800' and False");
    EXPECT_THAT(only(), ElementsAre(isFinding(Level::warning, "firewalld keeps phones away")));
    EXPECT_THAT(only()[0].advice, HasSubstr("firewall-cmd"));
}

TEST(StateCheck, judgesAndLooksAtRealFolders) {
    StateFacts facts;
    facts.places = {{"the settings", true}};
    facts.freeBytes = 1 << 30;
    EXPECT_THAT(stateFindings(facts), ElementsAre(isFinding(Level::ok, "alone")));
    facts.places[0].isWritable = false;
    EXPECT_THAT(stateFindings(facts), ElementsAre(isFinding(Level::problem, "cannot be written")));
    facts.places[0].isOwn = false;
    EXPECT_THAT(stateFindings(facts), ElementsAre(isFinding(Level::problem, "another user")));
    facts.places.clear();
    facts.freeBytes = 1000;
    EXPECT_THAT(stateFindings(facts), ElementsAre(isFinding(Level::problem, "disk is full")));

    TemporaryFolder folder;
    const StateLocation state{folder / "deep/state"};
    EXPECT_THAT(stateFindings(StateFacts::look(state)), ElementsAre(isFinding(Level::ok, "")));
    std::filesystem::create_directories(folder / "deep/state/secrets");
    std::filesystem::permissions(folder / "deep/state/secrets", std::filesystem::perms{0755});
    const auto findings = stateFindings(StateFacts::look(state));
    EXPECT_THAT(findings, ElementsAre(isFinding(Level::warning, "other users get at")));
    EXPECT_THAT(findings[0].text, testing::Not(HasSubstr(folder.path.string())));
    expectAdvice(findings);
}

TEST(StartCheck, judges) {
    struct Row {
        StartFacts facts;
        Level level;
        const char* text;
    };
    const Row rows[] = {
        {{true, false, false, false, false}, Level::ok, "by hand"},
        {{false, true, true, false, false}, Level::ok, "at login"},
        {{false, true, true, true, false}, Level::warning, "two things"},
        {{false, false, false, true, true}, Level::ok, "by systemd"},
        {{false, false, false, true, false}, Level::warning, "only while this user"},
        {{false, true, false, false, false}, Level::warning, "by hand only"},
        {{false, false, false, false, false}, Level::warning, "by hand only"},
    };
    for (const Row& row : rows) {
        const auto findings = startFindings(row.facts);
        EXPECT_THAT(findings, ElementsAre(isFinding(row.level, row.text)));
        expectAdvice(findings);
    }
    TemporaryFolder folder;
    EXPECT_TRUE(StartFacts::look({folder / "state"}).isBesideOwnState);
}

}  // namespace
}  // namespace orvel
