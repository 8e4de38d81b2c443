#include "OrvelAgent/Desk/DirectoryLister.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "OrvelAgent/Platform/Fake/FakeFileSystem.h"
#include "Tests/Support/TemporaryFolder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

constexpr std::size_t noLimit = 16'777'216;

// "name/" for a folder, "name size" for a file.
std::vector<std::string> linesOf(const DirectoryListing& listing) {
    std::vector<std::string> lines;
    for (const auto& entry : listing.entries) {
        lines.push_back(entry.isDirectory ? entry.name + "/"
                                          : entry.name + " " + std::to_string(entry.size));
    }
    return lines;
}

TEST(PhonePath, isReadAsPhonesWriteIt) {
    const struct {
        const char* name;
        std::optional<std::string> path;
        std::string resolved, lastComponent;
        std::optional<std::string> parent;
    } rows[] = {
        {"absent", std::nullopt, "/home/u", "u", "/home"},
        {"empty", "", "/home/u", "u", "/home"},
        {"the top", "/", "/", "/", std::nullopt},
        {"the top, many times", "///", "/", "/", std::nullopt},
        {"below the top", "/etc", "/etc", "etc", "/"},
        {"deeper", "/a/b/c.txt", "/a/b/c.txt", "c.txt", "/a/b"},
        {"a slash at the end", "/a/b/", "/a/b", "b", "/a"},
        {"too many slashes", "//a///b//", "/a/b", "b", "/a"},
        {"relative", "Documents/x", "/home/u/Documents/x", "x", "/home/u/Documents"},
        {"escaped", "/a/\uEFE7\uEFF6p", "/a/\xE7\xF6p", "\xE7\xF6p", "/a"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string resolved = PhonePath::resolve(row.path, "/home/u");
        EXPECT_EQ(resolved, row.resolved);
        EXPECT_EQ(PhonePath::lastComponent(resolved), row.lastComponent);
        EXPECT_EQ(PhonePath::parent(resolved), row.parent);
    }
}

class DirectoryListerTest : public testing::Test {
protected:
    void file(const std::string& name, std::size_t size = 0) {
        std::ofstream(folder / name) << std::string(size, 'x');
    }
    void directory(const std::string& name) { std::filesystem::create_directory(folder / name); }
    DirectoryListing list(const std::optional<std::string>& path) {
        return lister.list(path, noLimit);
    }

    TemporaryFolder folder;
    const std::unique_ptr<FileSystem> files = FileSystem::create();
    DirectoryLister lister{*files, folder.path.string()};
};

TEST_F(DirectoryListerTest, foldersComeFirstAndHiddenOnesNotAtAll) {
    file("b10.txt", 10);
    file("b9.txt", 9);
    file(".profile", 1);
    file("A.txt");
    directory("zoo");
    directory("Çay");
    directory(".cache");
    const auto listing = list(std::nullopt);
    EXPECT_THAT(linesOf(listing), ElementsAre("Çay/", "zoo/", "A.txt 0", "b9.txt 9", "b10.txt 10"));
    EXPECT_EQ(listing.path, folder.path.string());
    EXPECT_EQ(listing.parent, folder.path.parent_path().string());
    EXPECT_EQ(listing.error, std::nullopt);
}

TEST_F(DirectoryListerTest, packagesAreFiles) {
    directory("Orvel.app");
    directory("Holiday.PhotosLibrary");
    directory("app");
    directory("notes.d");
    file("real.app", 3);
    EXPECT_THAT(
        linesOf(list(std::nullopt)),
        ElementsAre("app/", "notes.d/", "Holiday.PhotosLibrary 0", "Orvel.app 0", "real.app 3"));
}

TEST_F(DirectoryListerTest, linksAreWhatTheyLeadTo) {
    file("file", 5);
    directory("folder");
    std::filesystem::create_symlink("file", folder / "to file");
    std::filesystem::create_symlink("folder", folder / "to folder");
    std::filesystem::create_symlink("nowhere", folder / "to nowhere");
    std::filesystem::create_symlink("to itself", folder / "to itself");
    const auto listing = list(std::nullopt);
    EXPECT_THAT(linesOf(listing), ElementsAre("folder/", "to folder/", "file 5", "to file 5",
                                              "to itself 0", "to nowhere 0"));
    EXPECT_TRUE(listing.entries[3].modified);
    EXPECT_FALSE(listing.entries[5].modified);
    EXPECT_EQ(list("to folder").error, std::nullopt);
}

TEST_F(DirectoryListerTest, filesHaveTheirDate) {
    file("dated");
    const timespec times[2] = {{0, UTIME_NOW}, {978'307'200 + 10, 500'000'000}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / "dated").c_str(), times, 0), 0);
    const auto listing = list(std::nullopt);
    ASSERT_EQ(listing.entries.size(), 1u);
    EXPECT_EQ(secondsSinceReferenceDate(listing.entries[0].modified.value()), 10.5);
}

TEST_F(DirectoryListerTest, pipesAreListedAsEmptyFiles) {
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_THAT(linesOf(list(std::nullopt)), ElementsAre("pipe 0"));
}

TEST_F(DirectoryListerTest, namesThatAreNoTextCanBeListedByWhatWasListed) {
    directory("\xE7\xF6p");
    file("\xE7\xF6p/\xFF.txt", 7);
    const auto outer = list(std::nullopt);
    EXPECT_THAT(linesOf(outer), ElementsAre("\uEFE7\uEFF6p/"));
    const auto inner = list(outer.path + "/" + outer.entries[0].name);
    EXPECT_THAT(linesOf(inner), ElementsAre("\uEFFF.txt 7"));
    EXPECT_EQ(inner.path, folder / "\uEFE7\uEFF6p");
    EXPECT_EQ(list(inner.path).entries, inner.entries);
}

TEST_F(DirectoryListerTest, theTopHasNoParent) {
    const auto listing = list("/");
    EXPECT_EQ(listing.path, "/");
    EXPECT_EQ(listing.parent, std::nullopt);
    EXPECT_EQ(listing.error, std::nullopt);
    EXPECT_FALSE(listing.entries.empty());
}

TEST_F(DirectoryListerTest, whatCannotBeListedSaysSoWithOneText) {
    file("file");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const std::string name : {"missing", "file", "file/below", "pipe"}) {
        SCOPED_TRACE(name);
        const auto listing = list(folder / name);
        EXPECT_EQ(listing.path, folder / name);
        EXPECT_TRUE(listing.parent);
        EXPECT_THAT(listing.entries, IsEmpty());
        EXPECT_EQ(listing.error,
                  "Bu konuma erişim izni yok. Mac'te Orvel Agent'a dosya erişimi izni ver.");
    }
    // What stands before a zero byte is another path.
    EXPECT_TRUE(list(folder.path.string() + std::string("\0x", 2)).error);
}

TEST(DirectoryLister, aListingTooLongForTheLinkLosesItsEnd) {
    FakeFileSystem files;
    files.entries["/f"].isDirectory = true;
    for (int i = 0; i < 300; ++i)
        files.entries["/f/\x01 " + std::to_string(i)].content = "x";
    DirectoryLister lister(files, "/");
    const auto whole = lister.list("/f", noLimit);
    ASSERT_EQ(whole.entries.size(), 300u);

    const auto length = [](const DirectoryListing& listing) {
        return Control{listing}.toJson().size();
    };
    EXPECT_EQ(lister.list("/f", length(whole)), whole);
    for (const std::size_t limit : {length(whole) - 1, length(whole) / 2, std::size_t{200}}) {
        SCOPED_TRACE(limit);
        auto cut = lister.list("/f", limit);
        EXPECT_LE(length(cut), limit);
        const std::size_t kept = cut.entries.size();
        ASSERT_LT(kept, 300u);
        EXPECT_TRUE(std::equal(cut.entries.begin(), cut.entries.end(), whole.entries.begin()));
        cut.entries.push_back(whole.entries[kept]);
        EXPECT_GT(length(cut), limit);
    }
}

}  // namespace
}  // namespace orvel
