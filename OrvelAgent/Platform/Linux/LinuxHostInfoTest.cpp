#include "OrvelAgent/Platform/Linux/LinuxHostInfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {
namespace {

struct PrettyRow {
    const char* name;
    const char* text;
    std::optional<std::string> want;
};

const PrettyRow prettyRows[] = {
    {"nothing", "", std::nullopt},
    {"plain", "PRETTY_HOSTNAME=Kitchen", "Kitchen"},
    {"among others", "ICON_NAME=x\nPRETTY_HOSTNAME=\"Ayşe's PC\"\r\nCHASSIS=y\n", "Ayşe's PC"},
    {"escapes in double quotes", R"(PRETTY_HOSTNAME="a \"b\" \\ \$ \n")", R"(a "b" \ $ \n)"},
    {"single quotes", R"(PRETTY_HOSTNAME='a\b "c"')", R"(a\b "c")"},
    {"escapes outside", R"(PRETTY_HOSTNAME=a\ b)", "a b"},
    {"an open quote", "PRETTY_HOSTNAME=\"a", "a"},
    {"a backslash at the end", "PRETTY_HOSTNAME=a\\", "a\\"},
    {"empty", "PRETTY_HOSTNAME=\"\"", std::nullopt},
    {"a comment", "# PRETTY_HOSTNAME=a", std::nullopt},
    {"the last counts", "PRETTY_HOSTNAME=a\nPRETTY_HOSTNAME=b", "b"},
};

TEST(LinuxHostInfo, readsThePrettyName) {
    for (const auto& row : prettyRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(LinuxHostInfo::prettyHostname(row.text), row.want);
    }
}

TEST(LinuxHostInfo, aHostNameThatSaysNothingIsNone) {
    EXPECT_EQ(LinuxHostInfo::nameFromHost("kitchen.example.org"), "kitchen");
    EXPECT_EQ(LinuxHostInfo::nameFromHost("kitchen"), "kitchen");
    for (const char* name : {"", "localhost", "localhost.localdomain", "(none)"})
        EXPECT_EQ(LinuxHostInfo::nameFromHost(name), std::nullopt) << name;
}

TEST(LinuxHostInfo, prefersThePrettyName) {
    const TemporaryFolder folder;
    std::array<char, 256> host{};
    gethostname(host.data(), host.size() - 1);
    EXPECT_EQ(LinuxHostInfo(folder / "absent").computerName(),
              LinuxHostInfo::nameFromHost(host.data()));
    writeFile(folder / "machine-info", "PRETTY_HOSTNAME=\"The Big One\"\n");
    EXPECT_EQ(LinuxHostInfo(folder / "machine-info").computerName(), "The Big One");
}

TEST(LinuxHostInfo, findsTheHomeFolder) {
    {
        const ScopedEnvironment home("HOME", "/home/x");
        EXPECT_EQ(LinuxHostInfo().homeFolder(), "/home/x");
    }
    const ScopedEnvironment home("HOME", std::nullopt);
    EXPECT_TRUE(LinuxHostInfo().homeFolder().starts_with('/'));
}

TEST(LinuxHostInfo, knowsTheProgramsVersion) {
    const auto version = LinuxHostInfo().shortVersion();
    ASSERT_TRUE(version.has_value());
    EXPECT_EQ(version->find_first_not_of("0123456789."), std::string::npos);
    EXPECT_TRUE(LinuxHostInfo().buildVersion().has_value());
}

}  // namespace
}  // namespace orvel
