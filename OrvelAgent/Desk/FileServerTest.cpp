#include "OrvelAgent/Desk/FileServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <condition_variable>
#include <fstream>
#include <mutex>

#include "OrvelAgent/Desk/FakePhoneLink.h"
#include "OrvelAgent/Platform/Fake/FakeFileSystem.h"
#include "Tests/Support/TemporaryFolder.h"

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace orvel {
namespace {

using Outcome = FileServer::Outcome;
using Lines = std::vector<std::string>;

constexpr const char* missing = "Dosya bulunamadı.";
constexpr const char* folderRefused = "Klasörler henüz indirilemiyor.";
constexpr const char* denied =
    "Bu konuma erişim izni yok. Mac'te Orvel Agent'a dosya erişimi izni ver.";
constexpr const char* readError = "Dosya okunamadı.";
constexpr const char* cancelled = "İptal edildi.";

// "1 start name 5", "1 data 5", "1 end", "1 end error".
std::string lineOf(const FileFrame& frame) {
    const std::string id = std::to_string(frame.id);
    if (const auto* start = std::get_if<FileFrame::Start>(&frame.step)) {
        return id + " start " + start->name + " " + std::to_string(start->size);
    }
    if (const auto* data = std::get_if<FileFrame::Data>(&frame.step)) {
        return id + " data " + std::to_string(data->bytes.size());
    }
    const auto& error = std::get<FileFrame::End>(frame.step).error;
    return error ? id + " end " + *error : id + " end";
}

Lines linesOf(const std::vector<FileFrame>& frames) {
    Lines lines;
    for (const auto& frame : frames)
        lines.push_back(lineOf(frame));
    return lines;
}

std::string contentOf(const std::vector<FileFrame>& frames, std::uint32_t id) {
    std::string content;
    for (const auto& frame : frames) {
        const auto* data = std::get_if<FileFrame::Data>(&frame.step);
        if (data && frame.id == id) content += textOf(data->bytes);
    }
    return content;
}

// No two chunks of it are equal.
std::string pattern(std::size_t size) {
    static std::string content;
    while (content.size() < size)
        content += std::to_string(content.size()) + ",";
    return content.substr(0, size);
}

// Two queues in virtual time, and `files` below the server.
class Desk {
public:
    explicit Desk(FileSystem& fileSystem) : files(fileSystem) {}

    template <class Action>
    void act(Action action) {
        queue.post([&] {
            queue.assertCurrent();
            action(*server);
        });
        time.runPending();
    }
    void fetch(std::uint32_t id, const std::string& path) {
        act([&](FileServer& s) { EXPECT_EQ(s.fetchFile(id, path, link), Outcome::accepted); });
    }
    void letGo(std::size_t count) {
        act([&](FileServer&) { link->letGo(count); });
    }
    Lines takeLines() { return linesOf(std::exchange(link->fileFrames, {})); }

    VirtualTime time;
    SerialQueue queue{"orvel.agent", time};
    SerialQueue filesQueue{"orvel.files", time};
    FileSystem& files;
    std::shared_ptr<FakePhoneLink> link = std::make_shared<FakePhoneLink>();
    std::shared_ptr<FileServer> server =
        std::make_shared<FileServer>(queue, filesQueue, files, "/home/u");
};

class RealFilesTest : public testing::Test {
protected:
    void write(const std::string& name, const std::string& content) {
        std::ofstream(folder / name, std::ios::binary) << content;
    }
    Lines fetched(const std::string& path) {
        desk.fetch(1, path);
        return desk.takeLines();
    }

    TemporaryFolder folder;
    const std::unique_ptr<FileSystem> files = FileSystem::create();
    Desk desk{*files};
};

TEST_F(RealFilesTest, aFileIsStartDataAndEnd) {
    const std::string content = pattern(65'536 + 10);
    write("Şarkı.txt", content);
    desk.fetch(7, folder / "Şarkı.txt");
    EXPECT_EQ(contentOf(desk.link->fileFrames, 7), content);
    EXPECT_THAT(desk.takeLines(),
                ElementsAre("7 start Şarkı.txt 65546", "7 data 65536", "7 data 10", "7 end"));
}

TEST_F(RealFilesTest, anEmptyFileHasNoData) {
    write("empty", "");
    EXPECT_THAT(fetched(folder / "empty"), ElementsAre("1 start empty 0", "1 end"));
}

TEST_F(RealFilesTest, aFileOfWholeChunksHasNoEmptyOne) {
    write("two", pattern(131'072));
    EXPECT_THAT(fetched(folder / "two"),
                ElementsAre("1 start two 131072", "1 data 65536", "1 data 65536", "1 end"));
}

TEST_F(RealFilesTest, whatCannotBeFetchedEndsAtOnceWithItsText) {
    std::filesystem::create_directory(folder / "folder");
    std::filesystem::create_directory(folder / "Orvel.app");
    std::filesystem::create_symlink("nowhere", folder / "to nowhere");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    write("file", "x");
    const std::pair<std::string, const char*> rows[] = {
        {folder / "missing", missing},
        {folder / "to nowhere", missing},
        {folder / "file/below", missing},
        {folder / "file" + std::string("\0.txt", 5), missing},
        {folder / "folder", folderRefused},
        {folder / "Orvel.app", folderRefused},
        {"/", folderRefused},
        {folder / "pipe", denied},
        {"/dev/zero", denied},
        {"/proc/self/mem", readError},  // opens, but nothing is at its beginning
    };
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(path);
        const Lines lines = fetched(path);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), std::string("1 end ") + error);
        EXPECT_EQ(lines.size(), error == readError ? 2u : 1u);
    }
}

TEST_F(RealFilesTest, aFileThatDoesNotKnowItsSizeIsReadToItsEnd) {
    desk.fetch(1, "/proc/self/status");
    EXPECT_EQ(lineOf(desk.link->fileFrames.front()), "1 start status 0");
    EXPECT_NE(contentOf(desk.link->fileFrames, 1).find("Name:"), std::string::npos);
    EXPECT_EQ(lineOf(desk.link->fileFrames.back()), "1 end");
}

TEST_F(RealFilesTest, aNameThatIsNoTextIsFoundByItsEscape) {
    write("\xE7.bin", "abc");
    EXPECT_THAT(fetched(folder / "\uEFE7.bin"),
                ElementsAre("1 start \uEFE7.bin 3", "1 data 3", "1 end"));
}

TEST_F(RealFilesTest, linksAreFollowedAndKeepTheirName) {
    write("target", "abc");
    std::filesystem::create_symlink("target", folder / "link");
    EXPECT_THAT(fetched(folder / "link"), ElementsAre("1 start link 3", "1 data 3", "1 end"));
}

// Stalled with about 2 MiB in the link, so that the file changes in the middle of the transfer.
class ChangingFileTest : public RealFilesTest {
protected:
    ChangingFileTest() {
        write("file", content);
        desk.link->isStalled = true;
        desk.fetch(1, folder / "file");
    }
    std::string received() {
        desk.link->isStalled = false;
        desk.letGo(1000);
        EXPECT_EQ(lineOf(desk.link->fileFrames.back()), "1 end");
        return contentOf(desk.link->fileFrames, 1);
    }
    const std::string content = pattern(4'000'000);
};

TEST_F(ChangingFileTest, oneThatGrowsIsSentWithWhatWasAdded) {
    const std::string added = pattern(100'000);
    std::ofstream(folder / "file", std::ios::app) << added;
    EXPECT_EQ(received(), content + added);
}

TEST_F(ChangingFileTest, oneThatShrinksEndsEarly) {
    std::filesystem::resize_file(folder / "file", 3'000'000);
    EXPECT_EQ(received(), content.substr(0, 3'000'000));
}

TEST_F(ChangingFileTest, oneThatIsDeletedIsSentWhole) {
    std::filesystem::remove(folder / "file");
    EXPECT_EQ(received(), content);
}

class FileServerTest : public testing::Test {
protected:
    FakeFileSystem files;
    Desk desk{files};
};

TEST_F(FileServerTest, listsOnItsQueueAndAnswersOnTheOwners) {
    files.entries["/home/u"].isDirectory = true;
    files.entries["/home/u/file"].content = "abc";
    std::optional<DirectoryListing> listing;
    desk.act([&](FileServer& server) {
        EXPECT_EQ(server.listDirectory(std::nullopt,
                                       [&](DirectoryListing answer) {
                                           EXPECT_TRUE(desk.queue.isCurrent());
                                           listing = std::move(answer);
                                       }),
                  Outcome::accepted);
        EXPECT_FALSE(listing);
    });
    EXPECT_EQ(listing,
              (DirectoryListing{"/home/u", "/home", {{"file", false, 3, std::nullopt}}, {}}));
}

TEST_F(FileServerTest, staysTwoMebibytesAheadOfTheLink) {
    files.entries["/big"].content = pattern(10'000'000);
    desk.link->isStalled = true;
    desk.fetch(1, "/big");
    const auto full = desk.link->fileBacklog();
    EXPECT_GE(full, 2'097'152);
    EXPECT_LT(full, 2'097'152 + 70'000);
    desk.time.advance(1s);
    EXPECT_EQ(desk.link->fileBacklog(), full);
    // What the link sends is filled up a few reads at a time, without waiting for a timer.
    desk.letGo(12);
    EXPECT_GT(desk.link->fileBacklog(), 2'097'152 - 5 * 65'536);
    EXPECT_LT(desk.link->fileBacklog(), 2'097'152 + 70'000);
}

TEST_F(FileServerTest, aLinkThatDoesNotReportIsLookedAtEveryTenMilliseconds) {
    struct SilentLink : FakePhoneLink {
        std::int64_t shown = 0;
        std::int64_t fileBacklog() const override { return shown; }
        void sendFile(FrameBuffer frame, UniqueFunction<void()>) override {
            shown += static_cast<std::int64_t>(frame.payloadLength());
            FakePhoneLink::sendFile(std::move(frame), nullptr);
        }
    };
    const auto silent = std::make_shared<SilentLink>();
    desk.link = silent;
    files.entries["/big"].content = pattern(10'000'000);
    desk.fetch(1, "/big");
    const auto sent = desk.link->fileFrames.size();
    silent->shown = 0;
    desk.time.advance(9ms);
    EXPECT_EQ(desk.link->fileFrames.size(), sent);
    desk.time.advance(1ms);
    EXPECT_GT(desk.link->fileFrames.size(), sent);
}

TEST_F(FileServerTest, downloadsOfALinkTakeTurns) {
    desk.link->isStalled = true;
    for (std::uint32_t id = 1; id <= 3; ++id)
        files.entries["/" + std::to_string(id)].content = pattern(8'000'000);
    for (std::uint32_t id = 1; id <= 3; ++id)
        desk.fetch(id, "/" + std::to_string(id));
    // The first had the link for itself for a while; then come the starts of the others.
    desk.letGo(desk.link->framesWaiting());
    desk.letGo(desk.link->framesWaiting());
    desk.link->fileFrames.clear();
    desk.letGo(30);
    std::map<std::uint32_t, int> chunks;
    for (const auto& frame : desk.link->fileFrames)
        chunks[frame.id] += std::holds_alternative<FileFrame::Data>(frame.step) ? 1 : 0;
    EXPECT_THAT(chunks,
                ElementsAre(testing::Pair(1, 10), testing::Pair(2, 10), testing::Pair(3, 10)));
    desk.link->isStalled = false;
    desk.letGo(1000);
    for (std::uint32_t id = 1; id <= 3; ++id)
        EXPECT_EQ(linesOf(desk.link->fileFrames).back().substr(1), " end");
}

TEST_F(FileServerTest, aShortFileDoesNotWaitForALongOne) {
    files.entries["/long"].content = pattern(50'000'000);
    files.entries["/short"].content = "abc";
    desk.link->isStalled = true;
    desk.fetch(1, "/long");
    desk.fetch(2, "/short");
    for (int i = 0; i < 3; ++i)
        desk.letGo(40);
    const Lines lines = desk.takeLines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "2 end"), lines.end());
    EXPECT_EQ(std::find(lines.begin(), lines.end(), "1 end"), lines.end());
}

TEST_F(FileServerTest, cancellingBetweenTwoRoundsEndsTheDownloadAndClosesTheFile) {
    files.entries["/big"].content = pattern(10'000'000);
    desk.link->isStalled = true;
    desk.fetch(1, "/big");
    EXPECT_EQ(files.filesOpen, 1);
    desk.act([&](FileServer& server) { server.cancel(1, *desk.link); });
    EXPECT_EQ(files.filesOpen, 0);
    desk.letGo(1000);
    desk.time.advance(1s);
    EXPECT_EQ(desk.takeLines().back(), std::string("1 end ") + cancelled);
}

TEST_F(FileServerTest, cancellingBeforeTheStartGivesAnEndAlone) {
    files.entries["/file"].content = "abc";
    desk.act([&](FileServer& server) {
        EXPECT_EQ(server.fetchFile(1, "/file", desk.link), Outcome::accepted);
        server.cancel(1, *desk.link);
        server.cancel(2, *desk.link);
    });
    EXPECT_THAT(desk.takeLines(), ElementsAre(std::string("1 end ") + cancelled));
    EXPECT_EQ(files.filesOpen, 0);
}

TEST_F(FileServerTest, cancellingAnotherLinksDownloadDoesNothing) {
    files.entries["/file"].content = "abc";
    const auto other = std::make_shared<FakePhoneLink>();
    desk.act([&](FileServer& server) {
        EXPECT_EQ(server.fetchFile(1, "/file", desk.link), Outcome::accepted);
        server.cancel(1, *other);
        server.cancelAll(*other);
    });
    EXPECT_THAT(desk.takeLines(), ElementsAre("1 start file 3", "1 data 3", "1 end"));
}

TEST_F(FileServerTest, cancellingAllEndsWhatRunsAndWhatWaits) {
    files.entries["/big"].content = pattern(10'000'000);
    desk.link->isStalled = true;
    for (std::uint32_t id = 0; id < 100; ++id)
        desk.fetch(id, "/big");
    EXPECT_EQ(files.filesOpen, 64);
    desk.act([&](FileServer& server) { server.cancelAll(*desk.link); });
    EXPECT_EQ(files.filesOpen, 0);
    desk.letGo(1000);
    const Lines lines = desk.takeLines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.ends_with(cancelled); }),
              100);
}

TEST_F(FileServerTest, aReadErrorEndsTheDownload) {
    files.entries["/bad"] = {false, false, pattern(200'000), 70'000, {}};
    desk.fetch(1, "/bad");
    EXPECT_THAT(desk.takeLines(), ElementsAre("1 start bad 200000", "1 data 65536", "1 data 4464",
                                              std::string("1 end ") + readError));
    EXPECT_EQ(files.filesOpen, 0);
}

TEST_F(FileServerTest, aFileThatMayNotBeOpenedSaysSo) {
    files.entries["/secret"].isDenied = true;
    desk.fetch(1, "/secret");
    EXPECT_THAT(desk.takeLines(), ElementsAre(std::string("1 end ") + denied));
}

TEST_F(FileServerTest, theSameIdAgainReplacesTheDownloadWithoutAnEnd) {
    files.entries["/a"].content = pattern(10'000'000);
    files.entries["/b"].content = "abc";
    desk.link->isStalled = true;
    desk.fetch(1, "/a");
    desk.fetch(1, "/b");
    desk.letGo(1000);
    desk.letGo(1000);
    const Lines lines = desk.takeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 end"), 1);
    EXPECT_THAT(Lines(lines.end() - 3, lines.end()),
                ElementsAre("1 start b 3", "1 data 3", "1 end"));
    EXPECT_EQ(files.filesOpen, 0);
}

TEST_F(FileServerTest, aLinkThatVanishesClosesItsFiles) {
    files.entries["/big"].content = pattern(10'000'000);
    desk.link->isStalled = true;
    desk.fetch(1, "/big");
    desk.fetch(2, "/big");
    desk.link.reset();
    desk.time.advance(10ms);
    EXPECT_EQ(files.filesOpen, 0);
}

TEST_F(FileServerTest, aServerThatEndsClosesItsFiles) {
    files.entries["/big"].content = pattern(10'000'000);
    desk.link->isStalled = true;
    desk.fetch(1, "/big");
    desk.server.reset();
    EXPECT_EQ(files.filesOpen, 0);
    desk.link->letGo(1000);
    desk.time.advance(1s);
}

TEST_F(FileServerTest, manyDownloadsWaitForOneAnother) {
    for (int i = 0; i < 200; ++i)
        files.entries["/" + std::to_string(i)].content = "x";
    int mostOpen = 0;
    files.beforeRead = [&] { mostOpen = std::max(mostOpen, files.filesOpen); };
    desk.act([&](FileServer& server) {
        for (std::uint32_t i = 0; i < 200; ++i)
            EXPECT_EQ(server.fetchFile(i, "/" + std::to_string(i), desk.link), Outcome::accepted);
    });
    const Lines lines = desk.takeLines();
    EXPECT_EQ(lines.size(), 600u);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.ends_with(" end"); }),
              200);
    EXPECT_EQ(mostOpen, 64);
}

TEST_F(FileServerTest, aPhoneThatAsksWithoutReadingIsRefusedInTheEnd) {
    files.entries["/big"].content = pattern(10'000'000);
    desk.link->isStalled = true;
    desk.fetch(0, "/big");
    std::uint32_t accepted = 0;
    bool isRefused = false;
    while (!isRefused && accepted < 20'000) {
        desk.act([&](FileServer& server) {
            isRefused = server.fetchFile(accepted + 1, "/missing", desk.link) == Outcome::refused;
            accepted += isRefused ? 0 : 1;
        });
    }
    EXPECT_TRUE(isRefused);
    EXPECT_LT(desk.link->fileBacklog(), 2'097'152 + 4 * 65'536);
    desk.link->isStalled = false;
    desk.letGo(20'000);
    const Lines lines = desk.takeLines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.ends_with(missing); }),
              accepted);
}

TEST_F(FileServerTest, listingsThatWaitAreLimitedToo) {
    int answers = 0;
    desk.act([&](FileServer& server) {
        const auto list = [&] {
            return server.listDirectory("/", [&](const auto&) { ++answers; });
        };
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(list(), Outcome::accepted);
        EXPECT_EQ(list(), Outcome::refused);
    });
    EXPECT_EQ(answers, 256);
    desk.act([&](FileServer& server) {
        EXPECT_EQ(server.listDirectory("/", [](const auto&) {}), Outcome::accepted);
    });
}

// On threads: reading waits for a disk that does not answer, and the owner's queue goes on.
TEST(FileServerOnThreads, aSlowDiskDoesNotHoldTheOwner) {
    FakeFileSystem files;
    files.entries["/file"].content = pattern(300'000);
    std::mutex lock;
    std::condition_variable changed;
    bool isReading = false, mayRead = false, isDone = false;
    const auto waitFor = [&](bool& condition) {
        std::unique_lock hold(lock);
        return changed.wait_for(hold, 20s, [&] { return condition; });
    };
    const auto set = [&](bool& condition) {
        const std::lock_guard hold(lock);
        condition = true;
        changed.notify_all();
    };
    files.beforeRead = [&] {
        set(isReading);
        waitFor(mayRead);
    };
    const auto link = std::make_shared<FakePhoneLink>();
    std::shared_ptr<FileServer> server;
    {
        SerialQueue filesQueue("orvel.files");
        SerialQueue queue("orvel.agent");
        server = std::make_shared<FileServer>(queue, filesQueue, files, "/");
        queue.post([&] { EXPECT_EQ(server->fetchFile(1, "/file", link), Outcome::accepted); });
        ASSERT_TRUE(waitFor(isReading));
        bool isAlive = false;
        queue.post([&] { set(isAlive); });
        EXPECT_TRUE(waitFor(isAlive));
        set(mayRead);
        std::function<void()> look = [&] {
            if (!link->fileFrames.empty() && lineOf(link->fileFrames.back()) == "1 end") {
                server.reset();
                return set(isDone);
            }
            queue.post([&] { look(); });
        };
        queue.post([&] { look(); });
        ASSERT_TRUE(waitFor(isDone));
    }
    EXPECT_EQ(contentOf(link->fileFrames, 1), pattern(300'000));
}

}  // namespace
}  // namespace orvel
