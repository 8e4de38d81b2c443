#include "Phone/Download.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "Phone/NumberedName.h"
#include "Phone/Progress.h"
#include "Phone/RemotePath.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using Existing = Download::Existing;

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

struct DownloadTest : testing::Test {
    // Downloads `content` as `name`; the final path, or the problem.
    std::string download(const std::string& name, const std::string& content, Existing existing) {
        Download download(folder.path.string(), name, existing);
        const bool done =
            download.open() && download.write(bytesOf(content)) && download.complete();
        return done ? std::filesystem::path(download.path()).filename().string()
                    : download.problem();
    }
    TemporaryFolder folder;
};

TEST_F(DownloadTest, aFileIsThereWhenItIsComplete) {
    Download download(folder.path.string(), "a.txt", Existing::keep);
    ASSERT_TRUE(download.open());
    ASSERT_TRUE(download.write(bytesOf("ab")));
    EXPECT_THAT(namesIn(folder.path), UnorderedElementsAre("a.txt.part"));
    ASSERT_TRUE(download.write(bytesOf("c")));
    ASSERT_TRUE(download.complete());
    EXPECT_THAT(namesIn(folder.path), UnorderedElementsAre("a.txt"));
    EXPECT_EQ(fileText(folder / "a.txt"), "abc");
    EXPECT_EQ(download.size(), 3u);
    EXPECT_EQ(download.sha256(),  // FIPS 180-2, appendix B.1
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(DownloadTest, nothingIsLeftOfOneThatWasNotCompleted) {
    {
        Download download(folder.path.string(), "a", Existing::keep);
        ASSERT_TRUE(download.open() && download.write(bytesOf("ab")));
    }
    EXPECT_THAT(namesIn(folder.path), testing::IsEmpty());
}

TEST_F(DownloadTest, whatExistsIsKeptUnlessItIsToBeReplaced) {
    std::ofstream(folder / "a.txt") << "old";
    std::ofstream(folder / "a.txt.part") << "somebody's";
    EXPECT_EQ(download("a.txt", "1", Existing::keep), "a-2.txt");
    EXPECT_EQ(download("a.txt", "2", Existing::keep), "a-3.txt");
    EXPECT_THAT(download("a.txt", "3", Existing::refuse), HasSubstr("File exists"));
    EXPECT_EQ(fileText(folder / "a.txt"), "old");
    EXPECT_EQ(download("a.txt", "4", Existing::replace), "a.txt");
    EXPECT_EQ(fileText(folder / "a.txt"), "4");
    EXPECT_EQ(fileText(folder / "a.txt.part"), "somebody's");
    EXPECT_THAT(namesIn(folder.path),
                UnorderedElementsAre("a.txt", "a-2.txt", "a-3.txt", "a.txt.part"));
}

TEST_F(DownloadTest, theLongestNamesFit) {
    std::string name;
    while (name.size() < 254)
        name += "ş";
    EXPECT_EQ(download(name, "x", Existing::keep), name);
}

TEST_F(DownloadTest, whatCannotBeWrittenIsSaid) {
    Download nowhere(folder / "no", "a", Existing::keep);
    EXPECT_FALSE(nowhere.open());
    EXPECT_THAT(nowhere.problem(), HasSubstr("No such file"));
    EXPECT_FALSE(nowhere.write(bytesOf("a")));
    EXPECT_FALSE(nowhere.complete());
}

TEST(NumberedName, theNumberStandsBeforeTheEnding) {
    EXPECT_EQ(numberedName("/a.b/c.tar.gz", 2), "/a.b/c.tar-2.gz");
    EXPECT_EQ(numberedName("/a.b/c", 3), "/a.b/c-3");
    EXPECT_EQ(numberedName(".bashrc", 2), ".bashrc-2");
    EXPECT_EQ(numberedName("a.b", 1), "a.b");
}

TEST(RemotePath, onlyTheLastComponentIsUsedHere) {
    EXPECT_EQ(RemotePath::localName("/home/a/b.txt"), "b.txt");
    EXPECT_EQ(RemotePath::localName("b.txt"), "b.txt");
    EXPECT_EQ(RemotePath::localName("~/folder//"), "folder");
    for (const char* path : {"", "/", "//", ".", "..", "a/..", "../", "~", "~/"})
        EXPECT_EQ(RemotePath::localName(path), std::nullopt) << path;
    EXPECT_EQ(RemotePath::toSend(""), std::nullopt);
    EXPECT_EQ(RemotePath::toSend("~"), std::nullopt);
    EXPECT_EQ(RemotePath::toSend("~/"), std::nullopt);
    EXPECT_EQ(RemotePath::toSend("~//a/b"), "a/b");
    EXPECT_EQ(RemotePath::toSend("~a"), "~a");
    EXPECT_EQ(RemotePath::toSend("/"), "/");
}

TEST(Progress, saysHowFarAndHowLong) {
    const MonotonicTime begin{1h};
    Progress progress(begin);
    EXPECT_EQ(progress.line(begin), "0 B");
    progress.expect(100'000'000);
    progress.add(10'000'000);
    EXPECT_EQ(progress.line(begin + 1s), " 10 %  10 MB of 100 MB  10 MB/s  0:09 left");
    progress.add(90'000'000);
    EXPECT_THAT(progress.line(begin + 2s), testing::StartsWith("100 %  100 MB of 100 MB  "));
    progress.add(100'000'000);  // the file has grown
    EXPECT_THAT(progress.line(begin + 3s), testing::StartsWith("100 %  200 MB of 100 MB  "));
    // After a stall the rate goes down, and the time does not run to infinity.
    EXPECT_LT(*progress.rate(begin + 60s), 10'000);

    EXPECT_EQ(humanSize(0), "0 B");
    EXPECT_EQ(humanSize(999), "999 B");
    EXPECT_EQ(humanSize(1000), "1.0 kB");
    EXPECT_EQ(humanSize(9'960), "10 kB");
    EXPECT_EQ(humanSize(999'600), "1.0 MB");
    EXPECT_EQ(humanSize(9.3e18), "9.3 EB");
    EXPECT_EQ(humanDuration(0), "0:00");
    EXPECT_EQ(humanDuration(61), "1:01");
    EXPECT_EQ(humanDuration(3723.2), "1:02:04");
    EXPECT_EQ(humanDuration(1e300), "99:59:59");
}

}  // namespace

}  // namespace orvel::phone
