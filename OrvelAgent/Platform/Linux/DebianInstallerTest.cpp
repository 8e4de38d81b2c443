#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "OrvelAgent/Platform/Linux/PackageInstaller.h"
#include "OrvelKit/Relay/Inbox.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/TemporaryFolder.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Outcome = PackageInstaller::Outcome;

// Programs of the desktop that write down how they are called and end as they are told.
struct DebianInstallerTest : testing::Test {
    TemporaryFolder folder;
    const std::string calls = folder / "calls";
    const std::string file = folder / "orvel agent_2.deb";
    ScopedEnvironment path{"PATH", folder.path.string() + ":/usr/bin:/bin"};
    std::unique_ptr<PackageInstaller> installer;
    SerialQueue queue{"orvel.updates"};

    void program(const std::string& name, const std::string& ending) {
        const auto where = folder / name;
        std::ofstream(where) << "#!/bin/sh\necho \"" << name << " $*\" >>'" << calls << "'\n"
                             << ending << "\n";
        ASSERT_EQ(chmod(where.c_str(), 0755), 0);
    }
    Outcome install() {
        Inbox<Outcome> outcomes;
        installer = makeDebianInstaller(queue);
        queue.post(
            [&] { installer->install(file, [&](Outcome outcome) { outcomes.put(outcome); }); });
        return outcomes.take(60s).value();
    }
};

TEST_F(DebianInstallerTest, asksThroughPolkitAndElseLeavesItToTheDesktop) {
    const std::string apt =
        "pkexec --disable-internal-agent /usr/bin/apt-get install --yes --quiet --no-remove -o "
        "Dpkg::Options::=--force-confold " +
        file + "\n";
    const std::string open = "xdg-open " + file + "\n";
    const std::string show = "xdg-open " + folder.path.string() + "\n";
    struct Row {
        const char* polkit;
        const char* desktop;
        Outcome outcome;
        std::string calls;
    };
    const Row rows[] = {
        {"exit 0", "exit 0", Outcome::installed, apt},
        {"exit 126", "exit 0", Outcome::declined, apt},
        {"exit 100", "exit 0", Outcome::failed, apt},
        {"exit 127", "exit 0", Outcome::opened, apt + open},
        {"kill -9 $$", "exit 0", Outcome::opened, apt + open},
        {"exit 127", "test -d \"$1\"", Outcome::opened, apt + open + show},
        {"exit 127", "exit 3", Outcome::failed, apt + open + show},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.polkit);
        std::ofstream(calls).close();
        program("pkexec", row.polkit);
        program("xdg-open", row.desktop);
        EXPECT_EQ(install(), row.outcome);
        EXPECT_EQ(fileText(calls), row.calls);
    }
}

TEST_F(DebianInstallerTest, readsWhatPackagesSayOfThemselves) {
    installer = makeDebianInstaller(queue);
    EXPECT_FALSE(installer->identify(file));
    std::ofstream(file) << "!<arch>\nno package";
    EXPECT_FALSE(installer->identify(file));
    BackgroundProcess build(
        {.command = {"sh", "-ec",
                     "cd \"$FOLDER\"; mkdir -p tree/DEBIAN; printf '%s\\n' 'Package: orvel-agent' "
                     "'Version: 2.0-1' 'Architecture: amd64' 'Maintainer: A <a@example.org>' "
                     "'Description: a test' >tree/DEBIAN/control; dpkg-deb -b tree \"$FILE\""},
         .environment = {{"FOLDER", folder.path.string()}, {"FILE", file}}});
    ASSERT_EQ(build.wait(60s), 0);
    const auto identity = installer->identify(file);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->name + " " + identity->version + " " + identity->architecture,
              "orvel-agent 2.0-1 amd64");
    EXPECT_EQ(installer->installedVersion("no-such-package"), std::nullopt);
    const auto own = installer->installedVersion("dpkg");
    ASSERT_TRUE(own);
    EXPECT_TRUE(std::isdigit(own->front())) << *own;
    program("dpkg-query", "echo 'config-files 1.0-1'");
    EXPECT_EQ(installer->installedVersion("orvel-agent"), std::nullopt);
    program("dpkg-deb", "yes");  // never ends, and says too much
    EXPECT_FALSE(installer->identify(file));
}

}  // namespace
}  // namespace orvel
