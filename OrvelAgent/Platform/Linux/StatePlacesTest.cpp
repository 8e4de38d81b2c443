#include "OrvelAgent/Platform/Posix/StatePlaces.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {
namespace {

TEST(StatePlaces, theUsersOwnStateIsLockedInTheRuntimeFolder) {
    const TemporaryFolder folder;
    std::unique_ptr<InstanceLock> lock;
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder / "config");
    {
        const ScopedEnvironment runtime("XDG_RUNTIME_DIR", folder.path);
        EXPECT_EQ(InstanceLock::acquire({}, lock), InstanceLock::Outcome::taken);
        EXPECT_TRUE(std::filesystem::exists(folder / "orvel/agent.lock"));
        EXPECT_EQ(modeOf(folder / "orvel"), 0700u);
    }
    const ScopedEnvironment gone("XDG_RUNTIME_DIR", folder / "gone");
    EXPECT_EQ(InstanceLock::acquire({}, lock), InstanceLock::Outcome::taken);
    EXPECT_TRUE(std::filesystem::exists(folder / "config/orvel/agent.lock"));
    EXPECT_FALSE(std::filesystem::exists(folder / "gone"));
}

TEST(StatePlaces, theUsersFoldersAreThoseOfTheDesktop) {
    const ScopedEnvironment home("HOME", "/home/x");
    const ScopedEnvironment relative("XDG_DATA_HOME", "not/absolute");
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", "not/absolute");
    {
        const ScopedEnvironment config("XDG_CONFIG_HOME", std::nullopt);
        const auto places = StatePlaces::of({});
        EXPECT_EQ(places.defaultsFile, "/home/x/.config/orvel/defaults.json");
        EXPECT_EQ(places.secretsFolder, "/home/x/.local/share/orvel/secrets");
        EXPECT_EQ(places.secretChoiceFile, "/home/x/.local/share/orvel/secret-store");
        EXPECT_EQ(places.lockFolders, std::vector<std::string>{"/home/x/.config/orvel"});
    }
    const ScopedEnvironment config("XDG_CONFIG_HOME", "/c");
    EXPECT_EQ(StatePlaces::of({}).defaultsFile, "/c/orvel/defaults.json");
}

}  // namespace
}  // namespace orvel
