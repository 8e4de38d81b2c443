#include "OrvelAgent/Platform/Posix/FileSecretStore.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

bool operator==(const SecretStore::Item& a, const SecretStore::Item& b) {
    return a.status == b.status && a.data == b.data;
}
void PrintTo(const SecretStore::Item& item, std::ostream* out) {
    const char* const names[] = {"found", "missing", "unreadable"};
    *out << names[static_cast<int>(item.status)] << ", " << item.data.size() << " bytes";
}

namespace {

using Item = SecretStore::Item;
using Status = Item::Status;

const Item missing{Status::missing, {}};
const Item unreadable{Status::unreadable, {}};

struct FileSecretStoreTest : testing::Test {
    TemporaryFolder folder;
    const std::string secrets = folder / "secrets";
    const std::string path = secrets + "/item-com.halverton.orvel.agent@identity";
    FileSecretStore store{secrets};
    const Bytes key = Bytes(32, 7);

    Item read() { return store.read("com.halverton.orvel.agent", "identity"); }
    bool add(ByteView data) { return store.add("com.halverton.orvel.agent", "identity", data); }
};

TEST_F(FileSecretStoreTest, aSecretIsAPrivateFileInAPrivateFolder) {
    EXPECT_EQ(read(), missing);
    EXPECT_FALSE(store.hasItems());
    EXPECT_TRUE(add(key));
    EXPECT_EQ(read(), (Item{Status::found, key}));
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(modeOf(secrets), 0700u);
    EXPECT_TRUE(store.hasItems());
    EXPECT_EQ(FileSecretStore(secrets).read("com.halverton.orvel.agent", "identity"), read());
}

TEST_F(FileSecretStoreTest, addingNeverReplaces) {
    ASSERT_TRUE(add(key));
    EXPECT_FALSE(add(Bytes(32, 8)));
    EXPECT_EQ(read().data, key);
    EXPECT_TRUE(store.replace("com.halverton.orvel.agent", "identity", Bytes(3, 9)));
    EXPECT_EQ(read().data, Bytes(3, 9));
    EXPECT_EQ(modeOf(path), 0600u);
}

TEST_F(FileSecretStoreTest, replacingAndRemovingWhatIsNotThere) {
    EXPECT_FALSE(store.remove("s", "a"));
    EXPECT_TRUE(store.replace("s", "a", key));
    EXPECT_EQ(store.read("s", "a").data, key);
    EXPECT_TRUE(store.remove("s", "a"));
    EXPECT_EQ(store.read("s", "a"), missing);
}

TEST_F(FileSecretStoreTest, everyNameIsItsOwnFileInsideTheFolder) {
    const std::pair<std::string, std::string> names[] = {
        {"", ""},      {"a", "b@c"}, {"a@b", "c"}, {"..", "../../x"}, {"/etc/passwd", "a"},
        {"ş", "a\nb"}, {"%40", "x"}, {"@", "x"},   {"a", "B"},        {"A", "b"},
    };
    std::uint8_t n = 0;
    for (const auto& [service, account] : names)
        EXPECT_TRUE(store.add(service, account, Bytes{n++}));
    n = 0;
    for (const auto& [service, account] : names)
        EXPECT_EQ(store.read(service, account).data, Bytes{n++}) << service << '@' << account;
    const auto entries = std::filesystem::directory_iterator(secrets);
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 10);
    EXPECT_FALSE(store.add(std::string(300, 'x'), "a", key));
}

TEST_F(FileSecretStoreTest, anOddItemIsReturnedAsItIs) {
    std::filesystem::create_directory(secrets);
    for (const std::string& text : {std::string(31, 'x'), std::string(), std::string(1000, '\0')}) {
        writeFile(path, text);
        EXPECT_EQ(read(), (Item{Status::found, Bytes(text.begin(), text.end())}));
        EXPECT_FALSE(add(key));
        EXPECT_EQ(fileText(path), text);
    }
}

struct NoSecretRow {
    const char* name;
    std::function<void(const std::string& path)> make;
};

const NoSecretRow noSecretRows[] = {
    {"a link to a secret",
     [](const std::string& path) {
         writeFile(path + "-target", "secret");
         std::filesystem::create_symlink(path + "-target", path);
     }},
    {"a link to nowhere",
     [](const std::string& path) { std::filesystem::create_symlink("nowhere", path); }},
    {"a folder", [](const std::string& path) { std::filesystem::create_directory(path); }},
    {"a pipe that nobody writes to", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
    {"more than a secret can be",
     [](const std::string& path) {
         writeFile(path, std::string(FileSecretStore::maxSize + 1, 'x'));
     }},
};

TEST_F(FileSecretStoreTest, whatIsNoSecretIsUnreadableAndStays) {
    std::filesystem::create_directory(secrets);
    for (const auto& row : noSecretRows) {
        SCOPED_TRACE(row.name);
        row.make(path);
        struct stat before, after;
        ASSERT_EQ(lstat(path.c_str(), &before), 0);
        EXPECT_EQ(read(), unreadable);
        EXPECT_FALSE(add(key));
        ASSERT_EQ(lstat(path.c_str(), &after), 0);
        EXPECT_EQ(before.st_ino, after.st_ino);
        EXPECT_EQ(before.st_size, after.st_size);
        std::filesystem::remove_all(path);
    }
}

TEST_F(FileSecretStoreTest, aFolderThatIsALinkOrAFileIsUnreadable) {
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::create_directory_symlink(folder / "elsewhere", secrets);
    EXPECT_EQ(read(), unreadable);
    EXPECT_FALSE(add(key));
    EXPECT_TRUE(std::filesystem::is_empty(folder / "elsewhere"));
    std::filesystem::remove(secrets);
    writeFile(secrets, "x");
    EXPECT_EQ(read(), unreadable);
    EXPECT_FALSE(add(key));
    EXPECT_EQ(fileText(secrets), "x");
}

TEST_F(FileSecretStoreTest, withoutPermissionItIsUnreadableAndStays) {
    std::filesystem::permissions(folder.path, std::filesystem::perms{0755});
    ASSERT_TRUE(add(key));
    chmod(secrets.c_str(), 0755);
    chmod(path.c_str(), 0);
    EXPECT_TRUE(
        succeedsWithoutPrivileges([&] { return read() == unreadable && !add(Bytes(1, 1)); }));
    chmod(path.c_str(), 0600);
    EXPECT_EQ(read().data, key);
}

TEST_F(FileSecretStoreTest, aFolderOpenToOthersIsClosed) {
    std::filesystem::create_directory(secrets);
    chmod(secrets.c_str(), 0777);
    EXPECT_TRUE(add(key));
    EXPECT_EQ(modeOf(secrets), 0700u);
}

TEST_F(FileSecretStoreTest, aFullDiskLeavesNothingHalf) {
    ASSERT_TRUE(store.add("s", "kept", key));
    EXPECT_TRUE(succeedsOnDiskOf(
        100, [&] { return !add(Bytes(200, 1)) && !store.replace("s", "kept", Bytes(200, 1)); }));
    EXPECT_EQ(read(), missing);
    EXPECT_EQ(store.read("s", "kept").data, key);
    const auto entries = std::filesystem::directory_iterator(secrets);
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(FileSecretStoreTest, ofSeveralThatAddOneWins) {
    for (int round = 0; round < 10; ++round) {
        std::atomic<int> added{0};
        std::vector<std::thread> threads;
        for (std::uint8_t i = 0; i < 4; ++i) {
            threads.emplace_back(
                [&, i] { added += store.add("s", std::to_string(round), Bytes(64, i)); });
        }
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(added, 1);
        EXPECT_EQ(store.read("s", std::to_string(round)).data.size(), 64u);
    }
}

TEST_F(FileSecretStoreTest, aKilledAdderLeavesAWholeSecretOrNone) {
    for (int round = 0; round < 40; ++round) {
        const std::string account = std::to_string(round);
        const pid_t adder = forked([&] {
            store.add("s", account + "-first", Bytes(60'000, 1));
            return store.add("s", account, Bytes(60'000, 1));
        });
        ASSERT_TRUE(eventually(
            [&] { return store.read("s", account + "-first").status == Status::found; }));
        for (int spin = 0; spin < round * 10; ++spin)
            sched_yield();
        kill(adder, SIGKILL);
        waitpid(adder, nullptr, 0);
        const auto item = store.read("s", account);
        EXPECT_TRUE(item == missing || item.data.size() == 60'000u);
        store.add("s", account, Bytes(60'000, 1));
        EXPECT_EQ(store.read("s", account).data.size(), 60'000u);
    }
}

}  // namespace
}  // namespace orvel
