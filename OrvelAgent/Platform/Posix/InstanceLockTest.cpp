#include <gtest/gtest.h>

#include <filesystem>

#include "OrvelAgent/Platform/Posix/StatePlaces.h"
#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {
namespace {

using Outcome = InstanceLock::Outcome;

struct InstanceLockTest : testing::Test {
    TemporaryFolder folder;
    const StateLocation here{folder / "state"};
    const std::string path = folder / "state/agent.lock";
    std::unique_ptr<InstanceLock> lock;

    Outcome acquire() { return InstanceLock::acquire(here, lock); }
    static bool anotherGets(const StateLocation& location, Outcome wanted) {
        return succeeds(forked([&] {
            std::unique_ptr<InstanceLock> theirs;
            return InstanceLock::acquire(location, theirs) == wanted;
        }));
    }
};

TEST_F(InstanceLockTest, oneAtATime) {
    EXPECT_EQ(acquire(), Outcome::taken);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(anotherGets(here, Outcome::heldByAnother));
    EXPECT_TRUE(anotherGets({folder / "other"}, Outcome::taken));
    lock.reset();
    EXPECT_TRUE(anotherGets(here, Outcome::taken)) << "the file that stays behind is harmless";
}

TEST_F(InstanceLockTest, aKilledHolderHoldsNothing) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = forked([&] {
        const bool taken = acquire() == Outcome::taken;
        if (write(ready[1], "x", 1) != 1) return false;
        pause();
        return taken;
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(acquire(), Outcome::heldByAnother);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(acquire(), Outcome::taken);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(InstanceLockTest, aProgramThatTheHolderStartedDoesNotHoldIt) {
    ASSERT_EQ(acquire(), Outcome::taken);
    BackgroundProcess child({.command = {"sleep", "1000"}});
    lock.reset();
    EXPECT_TRUE(eventually([&] { return acquire() == Outcome::taken; })) << "once it has begun";
    EXPECT_TRUE(child.isRunning());
}

TEST_F(InstanceLockTest, removingTheFileDoesNotUnlockTheNextStart) {
    ASSERT_EQ(acquire(), Outcome::taken);
    std::filesystem::remove(path);
    std::unique_ptr<InstanceLock> second;
    EXPECT_EQ(InstanceLock::acquire(here, second), Outcome::taken) << "nothing is left to see";
    EXPECT_TRUE(anotherGets(here, Outcome::heldByAnother));
}

TEST_F(InstanceLockTest, inAFolderThatIsReadOnlyTheOldFileServes) {
    ASSERT_EQ(acquire(), Outcome::taken);
    chmod(path.c_str(), 0444);
    std::filesystem::permissions(folder.path, std::filesystem::perms{0755});
    std::filesystem::permissions(folder / "state", std::filesystem::perms{0555});
    EXPECT_TRUE(succeedsWithoutPrivileges([&] {
        std::unique_ptr<InstanceLock> theirs;
        return InstanceLock::acquire(here, theirs) == Outcome::heldByAnother;
    }));
    lock.reset();
    EXPECT_TRUE(succeedsWithoutPrivileges([&] { return acquire() == Outcome::taken; }));
    std::filesystem::permissions(folder / "state", std::filesystem::perms{0755});
    std::filesystem::remove(path);
    std::filesystem::permissions(folder / "state", std::filesystem::perms{0555});
    EXPECT_TRUE(succeedsWithoutPrivileges([&] { return acquire() == Outcome::unavailable; }));
}

TEST_F(InstanceLockTest, whatIsNoFileIsUnavailable) {
    std::filesystem::create_directories(path);
    EXPECT_EQ(acquire(), Outcome::unavailable);
    std::filesystem::remove(path);
    std::filesystem::create_symlink("elsewhere", path);
    EXPECT_EQ(acquire(), Outcome::unavailable);
}

TEST(StatePlaces, oneFolderHoldsEverything) {
    const auto places = StatePlaces::of({"/some/where/../else"});
    EXPECT_EQ(places.defaultsFile, "/some/else/defaults.json");
    EXPECT_EQ(places.secretsFolder, "/some/else/secrets");
    EXPECT_EQ(places.secretChoiceFile, std::nullopt);
    EXPECT_EQ(places.lockFolders, std::vector<std::string>{"/some/else"});
    const auto relative = StatePlaces::of({"state"});
    EXPECT_EQ(relative.defaultsFile, std::filesystem::current_path() / "state/defaults.json");
}

}  // namespace
}  // namespace orvel
