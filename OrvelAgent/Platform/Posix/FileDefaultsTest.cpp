#include "OrvelAgent/Platform/Posix/FileDefaults.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cmath>
#include <filesystem>
#include <thread>

#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "OrvelKit/Base/Json.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {
namespace {

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Strings = std::vector<std::string>;
using StringDictionary = std::map<std::string, std::string>;
using DataDictionary = std::map<std::string, Bytes>;
using DateDictionary = std::map<std::string, WallTime>;

struct FileDefaultsTest : testing::Test {
    TemporaryFolder folder;
    const std::string path = folder / "defaults.json";
    FileDefaults defaults{path};

    std::string file() const { return fileText(path); }
    std::string aside(int n) const { return fileText(path + ".unreadable-" + std::to_string(n)); }
};

TEST_F(FileDefaultsTest, liesInTheFileInTheDocumentedForm) {
    EXPECT_TRUE(defaults.set("keepAwake", false));
    EXPECT_TRUE(defaults.set("commandKey", "super"));
    EXPECT_TRUE(defaults.set("remoteEvents", Strings{"b", "a"}));
    EXPECT_TRUE(defaults.set("deviceNames", StringDictionary{{"id", "Ayşe \"1\"\n"}}));
    EXPECT_TRUE(defaults.set("trustedKeys", DataDictionary{{"id", {0, 1, 255}}}));
    EXPECT_TRUE(defaults.set(
        "lastSeen", DateDictionary{{"id", WallTime(referenceDateSinceUnixEpoch +
                                                   std::chrono::milliseconds(770'000'000'250))}}));
    EXPECT_EQ(file(),
              "{\n"
              "  \"keepAwake\": false,\n"
              "  \"commandKey\": \"super\",\n"
              "  \"remoteEvents\": [\n"
              "    \"b\",\n"
              "    \"a\"\n"
              "  ],\n"
              "  \"deviceNames\": {\n"
              "    \"id\": \"Ayşe \\\"1\\\"\\n\"\n"
              "  },\n"
              "  \"trustedKeys\": {\n"
              "    \"id\": \"AAH/\"\n"
              "  },\n"
              "  \"lastSeen\": {\n"
              "    \"id\": 770000000.25\n"
              "  }\n"
              "}\n");
    EXPECT_EQ(modeOf(path), 0600u);
}

TEST_F(FileDefaultsTest, anotherProcessReadsWhatWasWritten) {
    const DateDictionary seen{{"id", fromSecondsSinceReferenceDate(1.5)}};
    const DataDictionary keys{{"id", Bytes(32, 7)}, {"empty", {}}};
    defaults.set("keepAwake", true);
    defaults.set("remoteAccess", "standby");
    defaults.set("remoteEvents", Strings{});
    defaults.set("deviceNames", StringDictionary{{"id", "name"}});
    defaults.set("trustedKeys", keys);
    defaults.set("lastSeen", seen);
    FileDefaults other(path);
    EXPECT_EQ(other.boolean("keepAwake"), true);
    EXPECT_EQ(other.string("remoteAccess"), "standby");
    EXPECT_EQ(other.strings("remoteEvents"), Strings{});
    EXPECT_EQ(other.stringDictionary("deviceNames"), (StringDictionary{{"id", "name"}}));
    EXPECT_EQ(other.dataDictionary("trustedKeys"), keys);
    EXPECT_EQ(other.dateDictionary("lastSeen"), seen);
    EXPECT_EQ(other.string("absent"), std::nullopt);
}

TEST_F(FileDefaultsTest, datesDoNotCreep) {
    const double numbers[] = {770'000'000.25, 770'000'000.1234567, -12345.5, 0, 1e300, -8.1e9};
    for (const double number : numbers) {
        SCOPED_TRACE(number);
        JsonWriter json;
        json.beginObject();
        json.key("id");
        json.number(number);
        json.endObject();
        ASSERT_TRUE(defaults.setJson("lastSeen", json.take()));
        const auto read = defaults.dateDictionary("lastSeen");
        ASSERT_TRUE(read.has_value());
        ASSERT_TRUE(defaults.set("lastSeen", *read));
        EXPECT_EQ(defaults.dateDictionary("lastSeen"), read);
        if (std::abs(number) < 8e9) {
            JsonDocument document(*defaults.json("lastSeen"));
            EXPECT_EQ(document.root().member("id")->number(), number);
        }
    }
}

struct WrongTypeRow {
    const char* name;
    const char* json;
};

const WrongTypeRow wrongTypeRows[] = {
    {"null", "null"},
    {"a number", "1"},
    {"a text in a list", R"(["a",1])"},
    {"a list in an object", R"({"a":[]})"},
    {"a boolean in an object", R"({"a":true})"},
};

TEST_F(FileDefaultsTest, aValueOfAnotherTypeCountsAsAbsentAndStays) {
    for (const auto& row : wrongTypeRows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(defaults.setJson("key", row.json));
        EXPECT_EQ(defaults.boolean("key"), std::nullopt);
        EXPECT_EQ(defaults.string("key"), std::nullopt);
        EXPECT_EQ(defaults.strings("key"), std::nullopt);
        EXPECT_EQ(defaults.stringDictionary("key"), std::nullopt);
        EXPECT_EQ(defaults.dataDictionary("key"), std::nullopt);
        EXPECT_EQ(defaults.dateDictionary("key"), std::nullopt);
        EXPECT_TRUE(defaults.set("other", true));
        EXPECT_EQ(defaults.json("key"), row.json);
    }
    EXPECT_TRUE(defaults.set("key", "written"));
    EXPECT_EQ(defaults.string("key"), "written");
}

TEST_F(FileDefaultsTest, oneDamagedKeyMakesTheDictionaryAbsent) {
    ASSERT_TRUE(defaults.setJson("trustedKeys", R"({"a":"AAH/","b":"no base64"})"));
    EXPECT_EQ(defaults.dataDictionary("trustedKeys"), std::nullopt);
}

TEST_F(FileDefaultsTest, whatNobodyHereKnowsStaysDigitForDigit) {
    writeFile(path, R"({"theirs":{"x":[1.10,12345678901234567890]},"keepAwake":true})");
    EXPECT_TRUE(defaults.set("keepAwake", false));
    EXPECT_EQ(defaults.json("theirs"), R"({"x":[1.10,12345678901234567890]})");
    EXPECT_TRUE(defaults.remove("keepAwake"));
    EXPECT_EQ(compactJson(file()), R"({"theirs":{"x":[1.10,12345678901234567890]}})");
}

TEST_F(FileDefaultsTest, whatCouldNotBeReadAgainIsNotWritten) {
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_TRUE(defaults.setJson("deep", nested(JsonDocument::maxDepth - 1)));
    EXPECT_FALSE(defaults.setJson("deeper", nested(JsonDocument::maxDepth)));
    EXPECT_FALSE(defaults.setJson("half", "[1"));
    EXPECT_FALSE(defaults.setJson("two", "1,2"));
    EXPECT_EQ(FileDefaults(path).json("deep"), nested(JsonDocument::maxDepth - 1));
}

TEST_F(FileDefaultsTest, writingWhatIsThereAlreadyLeavesTheFileAlone) {
    defaults.set("a", "x");
    const auto before = std::filesystem::last_write_time(path);
    struct stat first, second;
    ASSERT_EQ(stat(path.c_str(), &first), 0);
    EXPECT_TRUE(defaults.set("a", "x"));
    EXPECT_TRUE(defaults.remove("b"));
    ASSERT_EQ(stat(path.c_str(), &second), 0);
    EXPECT_EQ(first.st_ino, second.st_ino);
    EXPECT_EQ(before, std::filesystem::last_write_time(path));
}

// A cache that trusted times and inode numbers would miss some of these: both come again.
TEST_F(FileDefaultsTest, everyReadSeesTheWriteBeforeIt) {
    FileDefaults other(path);
    for (int i = 0; i < 200; ++i) {
        const std::string value = std::to_string(100 + i % 900);
        ASSERT_TRUE((i % 2 ? defaults : other).set("key", value));
        ASSERT_EQ((i % 2 ? other : defaults).string("key"), value);
        ASSERT_EQ((i % 2 ? defaults : other).string("key"), value);
    }
}

TEST_F(FileDefaultsTest, aFileEditedInPlaceIsSeen) {
    for (int i = 0; i < 100; ++i) {
        const std::string value = std::to_string(100 + i);
        writeFile(path, R"({"key":")" + value + R"("})");
        ASSERT_EQ(defaults.string("key"), value);
    }
}

TEST_F(FileDefaultsTest, aFileOldEnoughToBeCachedIsSeenToChange) {
    defaults.set("key", "old");
    // Older than the coarsest time stamp: now the cache counts until the stamp changes.
    ASSERT_TRUE(eventually([&] {
        timespec now;
        struct stat found;
        clock_gettime(CLOCK_REALTIME, &now);
        stat(path.c_str(), &found);
        return now.tv_sec - found.st_ctim.tv_sec > 2;
    }));
    EXPECT_EQ(defaults.string("key"), "old");
    FileDefaults other(path);
    other.set("key", "new");
    EXPECT_EQ(defaults.string("key"), "new");
}

TEST_F(FileDefaultsTest, writersInManyProcessesLoseNothing) {
    constexpr int writers = 4, keys = 25;
    std::vector<pid_t> children;
    for (int writer = 0; writer < writers; ++writer) {
        children.push_back(forked([&] {
            FileDefaults own(path);
            bool all = true;
            for (int key = 0; key < keys; ++key)
                all &= own.set(std::to_string(writer) + '-' + std::to_string(key), true);
            return all;
        }));
    }
    for (const pid_t child : children)
        EXPECT_TRUE(succeeds(child));
    EXPECT_EQ(jsonMembers(file())->size(), std::size_t{writers * keys});
}

TEST_F(FileDefaultsTest, threadsShareOneObject) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_TRUE(defaults.set(std::to_string(i), std::to_string(round)));
                EXPECT_EQ(defaults.string(std::to_string(i)), std::to_string(round));
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
}

TEST_F(FileDefaultsTest, aKilledWriterLeavesAWholeFile) {
    ASSERT_TRUE(defaults.set("round", "0"));
    ASSERT_TRUE(defaults.set("ballast", std::string(100'000, 'x')));
    for (int kills = 0; kills < 60; ++kills) {
        const auto before = defaults.string("round");
        const pid_t writer = forked([&] {
            FileDefaults own(path);
            for (int i = 0;; ++i)
                own.set("round", std::to_string(kills) + '.' + std::to_string(i));
            return true;
        });
        // Another moment each time: after the first write, and a little more.
        ASSERT_TRUE(eventually([&] { return defaults.string("round") != before; }));
        for (int spin = 0; spin < kills * 20; ++spin)
            sched_yield();
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        FileDefaults next(path);
        ASSERT_TRUE(next.string("round").has_value());
        ASSERT_EQ(next.string("ballast")->size(), 100'000u);
        ASSERT_TRUE(next.set("survived", std::to_string(kills)));
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path)) {
        EXPECT_FALSE(entry.path().string().ends_with(".new")) << "the next write cleans up";
        ++files;
    }
    EXPECT_EQ(files, 2) << "the file and its lock";
}

struct ForeignRow {
    const char* name;
    std::string text;
};

const ForeignRow foreignRows[] = {
    {"half a file", R"({"keepAwake":tr)"},
    {"two documents", "{} {}"},
    {"no object", "[1,2]"},
    {"no text", std::string("\x7F"
                            "ELF\0\xFF",
                            6)},
    {"not UTF-8", "{\"a\":\"\xFF\"}"},
    {"too deep", std::string(200, '[')},
    {"zeros, as after a power cut", std::string(300, '\0')},
    {"more than could be ours", "{\"a\":\"" + std::string(FileDefaults::maxFileSize, 'x') + "\"}"},
};

TEST_F(FileDefaultsTest, whatIsNotOursIsKeptAsideOnceAndAllGoesOn) {
    int n = 0;
    for (const auto& row : foreignRows) {
        SCOPED_TRACE(row.name);
        ++n;
        writeFile(path, row.text);
        CaptureStderr();
        EXPECT_EQ(defaults.boolean("keepAwake"), std::nullopt);
        EXPECT_EQ(defaults.boolean("keepAwake"), std::nullopt);
        EXPECT_EQ(GetCapturedStderr(),
                  "orvel: the user defaults were no JSON object of ours, kept aside as "
                  "defaults.json.unreadable-" +
                      std::to_string(n) + "\n");
        EXPECT_EQ(aside(n), row.text);
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_TRUE(defaults.set("keepAwake", true));
        EXPECT_EQ(compactJson(file()), R"({"keepAwake":true})");
    }
}

TEST_F(FileDefaultsTest, aWriteKeepsTheForeignFileToo) {
    writeFile(path, "not ours");
    EXPECT_TRUE(defaults.set("a", true));
    EXPECT_EQ(aside(1), "not ours");
    EXPECT_EQ(defaults.boolean("a"), true);
}

TEST_F(FileDefaultsTest, aSparseGigabyteIsNotRead) {
    writeFile(path, "{");
    std::filesystem::resize_file(path, 1ull << 30);
    EXPECT_EQ(defaults.string("a"), std::nullopt);
    EXPECT_EQ(std::filesystem::file_size(path + ".unreadable-1"), 1ull << 30);
}

TEST_F(FileDefaultsTest, anEmptyFileIsEmptyDefaults) {
    writeFile(path, "");
    CaptureStderr();
    EXPECT_EQ(defaults.string("a"), std::nullopt);
    EXPECT_EQ(defaults.string("a"), std::nullopt);
    EXPECT_EQ(GetCapturedStderr(), "orvel: the user defaults count as empty: The file is empty\n");
    EXPECT_TRUE(defaults.set("a", "x"));
    EXPECT_EQ(aside(1), "");
}

TEST_F(FileDefaultsTest, aWriteThatWouldBeTooLargeIsRefused) {
    ASSERT_TRUE(defaults.set("a", "x"));
    EXPECT_FALSE(defaults.set("b", std::string(FileDefaults::maxFileSize, 'x')));
    EXPECT_EQ(defaults.string("a"), "x");
}

struct NoFileRow {
    const char* name;
    std::function<void(const std::string& path)> make;
};

const NoFileRow noFileRows[] = {
    {"a folder", [](const std::string& path) { std::filesystem::create_directory(path); }},
    {"a pipe that nobody writes to", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
    {"a socket",
     [](const std::string& path) {
         sockaddr_un address{AF_UNIX, {}};
         path.copy(address.sun_path, sizeof address.sun_path - 1);
         const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
         bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
         close(listener);
     }},
    {"a link to nowhere",
     [](const std::string& path) { std::filesystem::create_symlink("/nonexistent/x", path); }},
    {"a link to a device",
     [](const std::string& path) { std::filesystem::create_symlink("/dev/null", path); }},
    {"a link to itself",
     [](const std::string& path) { std::filesystem::create_symlink(path, path); }},
    {"a file whose reading fails",
     [](const std::string& path) { std::filesystem::create_symlink("/proc/self/mem", path); }},
};

TEST_F(FileDefaultsTest, whatCannotBeReadCountsAsEmptyAndIsNotTouched) {
    for (const auto& row : noFileRows) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove(path);
        row.make(path);
        struct stat before, after;
        ASSERT_EQ(lstat(path.c_str(), &before), 0);
        CaptureStderr();
        FileDefaults fresh(path);
        EXPECT_EQ(fresh.string("a"), std::nullopt);
        EXPECT_EQ(fresh.document(), std::nullopt);
        EXPECT_FALSE(fresh.set("a", "x"));
        EXPECT_FALSE(fresh.set("b", "x"));
        const auto log = GetCapturedStderr();
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << "once for reads and writes each";
        ASSERT_EQ(lstat(path.c_str(), &after), 0);
        EXPECT_EQ(before.st_ino, after.st_ino);
        EXPECT_EQ(before.st_mode, after.st_mode);
    }
}

TEST_F(FileDefaultsTest, aFileThatMayNotBeReadIsNeverReplaced) {
    std::filesystem::permissions(folder.path, std::filesystem::perms::all);
    writeFile(path, R"({"trustedKeys":{}})");
    chmod(path.c_str(), 0);
    EXPECT_TRUE(succeedsWithoutPrivileges([&] {
        FileDefaults theirs(path);
        return !theirs.json("trustedKeys") && !theirs.set("a", true) && !theirs.document();
    }));
    chmod(path.c_str(), 0600);
    EXPECT_EQ(file(), R"({"trustedKeys":{}})");
}

TEST_F(FileDefaultsTest, aReadOnlyFolderGivesReadsAndOneLine) {
    ASSERT_TRUE(defaults.set("a", "x"));
    chmod(path.c_str(), 0644);
    std::filesystem::permissions(folder.path, std::filesystem::perms{0555});
    EXPECT_TRUE(succeedsWithoutPrivileges([&] {
        CaptureStderr();
        FileDefaults theirs(path);
        const bool refused = !theirs.set("a", "y") && !theirs.set("b", "y") && !theirs.remove("a");
        return GetCapturedStderr() ==
                   "orvel: the user defaults cannot be written: Permission denied\n" &&
               refused && theirs.string("a") == "x";
    }));
    std::filesystem::permissions(folder.path, std::filesystem::perms{0700});
    EXPECT_EQ(defaults.string("a"), "x");
}

TEST_F(FileDefaultsTest, onAFullDiskTheOldFileStays) {
    ASSERT_TRUE(defaults.set("a", std::string(500, 'x')));
    const auto before = file();
    EXPECT_TRUE(succeedsOnDiskOf(600, [&] {
        FileDefaults theirs(path);
        return !theirs.set("b", std::string(500, 'y')) && theirs.string("a")->size() == 500;
    }));
    EXPECT_EQ(file(), before);
    EXPECT_FALSE(std::filesystem::exists(folder / ".defaults.json.new"));
}

TEST_F(FileDefaultsTest, aLinkToTheFileStaysALink) {
    std::filesystem::create_directory(folder / "elsewhere");
    const auto target = folder / "elsewhere" + "/real.json";
    writeFile(target, R"({"a":true})");
    std::filesystem::create_symlink(target, path);
    EXPECT_TRUE(defaults.set("b", true));
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ(compactJson(fileText(target)), R"({"a":true,"b":true})");
}

TEST_F(FileDefaultsTest, theFirstWriteMakesThePrivateFolders) {
    FileDefaults deep(folder / "x/y/defaults.json");
    EXPECT_EQ(deep.string("a"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder / "x"));
    EXPECT_TRUE(deep.set("a", "b"));
    EXPECT_EQ(modeOf(folder / "x"), 0700u);
    EXPECT_EQ(modeOf(folder / "x/y"), 0700u);
}

TEST_F(FileDefaultsTest, aLockThatIsNeverReleasedDelaysAWriteButNotForEver) {
    ASSERT_TRUE(defaults.set("a", "x"));
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = forked([&] {
        const int file = open((path + ".lock").c_str(), O_RDWR);
        const bool locked = flock(file, LOCK_EX) == 0;
        if (write(ready[1], "x", 1) != 1) return false;
        pause();
        return locked;
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    CaptureStderr();
    EXPECT_EQ(defaults.string("a"), "x") << "reads need no lock";
    EXPECT_FALSE(FileDefaults(path, std::chrono::milliseconds(50)).set("a", "y"));
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("cannot be written"));
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_TRUE(defaults.set("a", "y")) << "a lock ends with its process";
    close(ready[0]);
    close(ready[1]);
}

}  // namespace
}  // namespace orvel
