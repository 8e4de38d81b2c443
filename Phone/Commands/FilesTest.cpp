#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <map>

#include "OrvelKit/Wire/Files.h"
#include "Phone/PhoneProgramForTests.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/ScopedEnvironment.h"

namespace orvel::phone {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* sha256OfAbc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class FilesTest : public PhoneProgramTest {
protected:
    FilesTest() { std::filesystem::create_directory(folder / "to"); }
    std::vector<std::string> fetched() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder / "to"))
            names.push_back(entry.path().filename().string());
        return names;
    }
};

void sendFile(AgentEnd& end, std::uint32_t id, const std::string& name,
              const std::string& content) {
    end.send(FileFrame{id, FileFrame::Start{name, std::int64_t(content.size())}}.encode());
    for (const char byte : content)
        end.send(FileFrame{id, FileFrame::Data{Bytes(1, std::uint8_t(byte))}}.encode());
    end.send(FileFrame{id, FileFrame::End{}}.encode());
}

TEST_F(FilesTest, listShowsAFolderAsItCame) {
    const ScopedEnvironment zone("TZ", "UTC");
    tzset();
    std::vector<std::optional<std::string>> asked;
    AgentForTests agent([&](AgentEnd& end) {
        end.admit();
        asked.push_back(end.receive<Control::ListDirectory>().path);
        const auto time = fromSecondsSinceReferenceDate(60);
        end.send({DirectoryListing{"/home/a\x1b",
                                   "/home",
                                   {{"B", true, 4096, time}, {"a\nb", false, 1'500'000, {}}},
                                   {}}});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"ls"}), 0) << remarked();
    EXPECT_EQ(said(),
              "/home/a\\x1b  (in /home)\n"
              "           2001-01-01 00:01  B/\n"
              "   1.5 MB                    a\\nb\n");
    EXPECT_EQ(runAt(agent, {"--json", "ls", "~/x"}), 0);
    EXPECT_EQ(said(), R"({"path":"/home/a\u001b","parent":"/home","entries":[)"
                      R"({"name":"B","isDirectory":true,"size":4096,"modified":978307260},)"
                      R"({"name":"a\nb","isDirectory":false,"size":1500000}]})"
                      "\n");
    agent.finish();
    EXPECT_EQ(asked, (std::vector<std::optional<std::string>>{std::nullopt, "x"}));
}

TEST_F(FilesTest, aFolderThatCannotBeReadFails) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        end.receive<Control::ListDirectory>();
        end.send({DirectoryListing{"/root", "/", {}, "Bu konuma erişim izni yok."}});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"ls", "/root"}), 1);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(remarked(), "/root: Bu konuma erişim izni yok.\n");
}

TEST_F(FilesTest, getKeepsTheNameThatWasAskedFor) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        const auto fetch = end.receive<Control::FetchFile>();
        EXPECT_EQ(fetch.path, "/home/a/b.txt");
        sendFile(end, fetch.id, "../../.bashrc", "abc");
        end.waitForEnd();
    });
    know(agent);
    const std::string to = folder / "to";
    EXPECT_EQ(runAt(agent, {"get", "/home/a/b.txt", "-o", to}), 0) << remarked();
    EXPECT_EQ(said(), std::string(sha256OfAbc) + "  " + to + "/b.txt\n");
    EXPECT_THAT(fetched(), UnorderedElementsAre("b.txt"));
    EXPECT_EQ(fileText(to + "/b.txt"), "abc");

    EXPECT_EQ(runAt(agent, {"get", "/home/a/b.txt", "-o", to + "/c"}), 0);
    EXPECT_EQ(runAt(agent, {"get", "/home/a/b.txt", "-o", to + "/c"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("exists"));
    EXPECT_EQ(runAt(agent, {"get", "/home/a/b.txt", "-o", to + "/c", "--force"}), 0);
    EXPECT_EQ(runAt(agent, {"get", "/home/a/b.txt", "-o", to}), 0);
    EXPECT_THAT(fetched(), UnorderedElementsAre("b.txt", "b-2.txt", "c"));
}

TEST_F(FilesTest, severalFilesInterleaveAndOneMayFail) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        std::map<std::string, std::uint32_t> ids;
        for (int i = 0; i < 4; ++i) {
            const auto fetch = end.receive<Control::FetchFile>();
            ids[fetch.path] = fetch.id;
        }
        const auto data = [&](const char* path, const char* bytes) {
            end.send(FileFrame{ids[path], FileFrame::Data{Bytes(bytes, bytes + 1)}}.encode());
        };
        for (const char* path : {"x/a", "y/a"})
            end.send(FileFrame{ids[path], FileFrame::Start{"a", 2}}.encode());
        data("x/a", "1");
        data("y/a", "3");
        end.send(FileFrame{ids["c"], FileFrame::End{"Dosya bulunamadı."}}.encode());
        data("y/a", "4");
        data("x/a", "2");
        for (const char* path : {"x/a", "y/a"})
            end.send(FileFrame{ids[path], FileFrame::End{}}.encode());
        sendFile(end, ids["d"], "d", "");
        for (int i = 0; i < 2; ++i) {
            const auto fetch = end.receive<Control::FetchFile>();
            sendFile(end, fetch.id, "?", fetch.path);
        }
        end.waitForEnd();
    });
    know(agent);
    const std::string to = folder / "to";
    EXPECT_EQ(runAt(agent, {"get", "x/a", "y/a", "c", "d", "e", "f", "-o", to}), 1);
    EXPECT_THAT(remarked(), AllOf(HasSubstr("c: Dosya bulunamadı.\n"), HasSubstr("1 of 6 files")));
    EXPECT_THAT(fetched(), UnorderedElementsAre("a", "a-2", "d", "e", "f"));
    EXPECT_EQ(fileText(to + "/a"), "12");
    EXPECT_EQ(fileText(to + "/a-2"), "34");
    EXPECT_EQ(fileText(to + "/d"), "");
    EXPECT_EQ(fileText(to + "/f"), "f");
}

TEST_F(FilesTest, anInterruptCancelsAndCleansUp) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        const auto fetch = end.receive<Control::FetchFile>();
        end.send(FileFrame{fetch.id, FileFrame::Start{"a", 1000}}.encode());
        end.send(FileFrame{fetch.id, FileFrame::Data{Bytes{1, 2}}}.encode());
        kill(getpid(), SIGINT);
        EXPECT_EQ(end.receive<Control::CancelFetch>().id, fetch.id);
        end.send(FileFrame{fetch.id, FileFrame::Data{Bytes{3}}}.encode());
        end.send(FileFrame{fetch.id, FileFrame::End{"İptal edildi."}}.encode());
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"get", "a", "-o", folder / "to"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("Cancelled."));
    EXPECT_THAT(fetched(), IsEmpty());
}

TEST_F(FilesTest, whatCannotBeKeptIsCancelled) {
    AgentForTests agent([&](AgentEnd& end) {
        end.admit();
        const auto fetch = end.receive<Control::FetchFile>();
        std::filesystem::remove(folder / "to");
        end.send(FileFrame{fetch.id, FileFrame::Start{"a", 1000}}.encode());
        EXPECT_EQ(end.receive<Control::CancelFetch>().id, fetch.id);
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"get", "a", "-o", folder / "to"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("No such file"));
}

TEST_F(FilesTest, aConnectionThatBreaksLeavesNothing) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        const auto fetch = end.receive<Control::FetchFile>();
        end.send(FileFrame{fetch.id, FileFrame::Start{"a", 1000}}.encode());
        end.send(FileFrame{fetch.id, FileFrame::Data{Bytes{1, 2}}}.encode());
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"get", "a", "-o", folder / "to"}), 1);
    EXPECT_THAT(fetched(), IsEmpty());
}

TEST_F(FilesTest, progressIsShownOnATerminalOnly) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        const auto fetch = end.receive<Control::FetchFile>();
        sendFile(end, fetch.id, "a", "abc");
        end.waitForEnd();
    });
    know(agent);
    for (const bool isTerminal : {false, true}) {
        terminals.err = isTerminal;
        EXPECT_EQ(runAt(agent, {"get", "a", "-o", folder / "to"}), 0);
        EXPECT_EQ(remarked().find('\r') != std::string::npos, isTerminal);
    }
}

}  // namespace

}  // namespace orvel::phone
