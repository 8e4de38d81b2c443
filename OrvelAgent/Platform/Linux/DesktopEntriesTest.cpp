#include "OrvelAgent/Platform/Linux/DesktopEntries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/TemporaryFolder.h"

using testing::ElementsAre;

namespace orvel {
namespace {

class DesktopEntriesTest : public testing::Test {
protected:
    void add(const std::string& file, const std::string& lines, const std::string& root = "user") {
        const std::filesystem::path path(folder / root + "/" + file);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "# a comment\n[Desktop Entry]\nType=Application\n" << lines;
    }
    // Identifier and name, with a slash between.
    std::string find(const WindowIdentity& window) {
        const auto* entry = entries.find(window);
        return entry ? entry->id + "/" + entry->name : "none";
    }
    static WindowIdentity ofClass(std::string instance, std::string className) {
        return {"", "", std::move(instance), std::move(className), ""};
    }

    TemporaryFolder folder;
    DesktopEntries entries{{folder / "user", folder / "system"}, {"tr_TR", "tr"}};
};

TEST_F(DesktopEntriesTest, findsTheApplicationOfAWindow) {
    add("org.example.TextEditor.desktop", "Name=Text Editor\nName[tr]=Metin Düzenleyici\n");
    add("org.example.Files.desktop", "Name=Files\nName[tr]=Dosya\nName[tr_TR]=Dosyalar\n");
    add("kde/viewer.desktop", "Name=Viewer\nName[de]=Betrachter\n");
    add("browser.desktop", "Name=Browser\nStartupWMClass=Navigator\nExec=/opt/b/start %U\n");
    add("web-app.desktop", "Name=Mail\nStartupWMClass=crx_mail\nExec=start --app=mail\n");
    add("debian-oldterm.desktop", "Name=Old Term\n");
    add("image-editor.desktop",
        "Name=Image\\sEditor\nExec=env A=b \"/usr/bin/imaged-2.10\" --x %U\n"
        "[Desktop Action new]\nName=Not this\nExec=other\n");
    add("writer.desktop", "Name=Writer\nExec=office --writer\n");
    add("calc.desktop", "Name=Calc\nExec=office --calc\n");
    add("helper.desktop", "Name=Helper\nExec=tool --helper\nNoDisplay=true\n");
    add("tool.real.desktop", "Name=Tool\nExec=tool\n");
    add("script.desktop", "Name=Script\nExec=python3 /opt/script.py\n");
    add("two-words.desktop", "Name=Two\n");

    const struct {
        const char* name;
        WindowIdentity window;
        const char* found;
    } rows[] = {
        {"GTK's identifier",
         {"org.example.TextEditor", "", "x", "Navigator", ""},
         "org.example.TextEditor/Metin Düzenleyici"},
        {"a file's name",
         {"", "org.example.Files.desktop", "", "", ""},
         "org.example.Files/Dosyalar"},
        {"a path", {"", "/usr/share/applications/browser.desktop", "", "", ""}, "browser/Browser"},
        {"a subfolder is part of it", {"kde-viewer", "", "", "", ""}, "kde-viewer/Viewer"},
        {"the class that the file names", ofClass("nav", "navigator"), "browser/Browser"},
        {"the instance goes first", ofClass("crx_mail", "Navigator"), "web-app/Mail"},
        {"a distribution's prefix", ofClass("oldterm", "OldTerm"), "debian-oldterm/Old Term"},
        {"the identifier's end", ofClass("files", "Files"), "org.example.Files/Dosyalar"},
        {"the program", ofClass("imaged-2.10", "Imaged"), "image-editor/Image Editor"},
        {"a program of several", ofClass("office", "Office"), "none"},
        {"one of them hidden", ofClass("tool", "T"), "tool.real/Tool"},
        {"an interpreter tells nothing", ofClass("python3", "Python3"), "none"},
        {"spaces", ofClass("", "Two Words"), "two-words/Two"},
        {"unknown identifiers",
         {"org.example.Gone", "", "browser", "Other", ""},
         "browser/Browser"},
        {"nothing", {}, "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(find(row.window), row.found);
    }
}

TEST_F(DesktopEntriesTest, theUsersFilesGoBeforeTheSystems) {
    add("a.desktop", "Name=System\n", "system");
    add("b.desktop", "Name=System\n", "system");
    add("c.desktop", "Name=System\n", "system");
    add("a.desktop", "Name=User\n");
    add("b.desktop", "Hidden=true\n");
    add("broken.desktop", "\n=\n[\nName\nName[=x\nExec=\\\nType=Link");
    EXPECT_EQ(find(ofClass("a", "")), "a/User");
    EXPECT_EQ(find(ofClass("b", "")), "none");
    EXPECT_EQ(find(ofClass("c", "")), "c/System");
    EXPECT_EQ(find(ofClass("broken", "")), "none");
}

TEST_F(DesktopEntriesTest, seesWhatIsInstalledMeanwhile) {
    EXPECT_EQ(find(ofClass("late", "")), "none");
    add("late.desktop", "Name=Late\n");
    EXPECT_EQ(find(ofClass("late", "")), "late/Late");
    add("sub/later.desktop", "Name=Later\n");
    EXPECT_EQ(find({"sub-later", "", "", "", ""}), "sub-later/Later");
    std::filesystem::remove(folder / "user/late.desktop");
    EXPECT_EQ(find(ofClass("late", "")), "none");
}

TEST(MessageLanguages, areThoseOfTheEnvironment) {
    const struct {
        const char *language, *all, *messages, *lang;
        std::vector<std::string> languages;
    } rows[] = {
        {"", "", "", "tr_TR.UTF-8", {"tr_TR", "tr"}},
        {"", "", "de", "tr_TR.UTF-8", {"de"}},
        {"", "sr_RS.UTF-8@latin", "de", "tr", {"sr_RS@latin", "sr_RS", "sr@latin", "sr"}},
        {"tr:en_GB", "", "", "de_DE.UTF-8", {"tr", "en_GB", "en", "de_DE", "de"}},
        {"tr", "C.UTF-8", "", "de_DE.UTF-8", {}},
        {"tr", "", "", "", {}},
    };
    for (const auto& row : rows) {
        const ScopedEnvironment language("LANGUAGE", row.language), all("LC_ALL", row.all),
            messages("LC_MESSAGES", row.messages), lang("LANG", row.lang);
        EXPECT_EQ(messageLanguages(), row.languages);
    }
}

TEST(ApplicationFolders, areThoseOfTheEnvironment) {
    const ScopedEnvironment home("HOME", "/h"), data("XDG_DATA_HOME", std::nullopt),
        system("XDG_DATA_DIRS", "/a::relative:/b");
    EXPECT_THAT(applicationFolders(),
                ElementsAre("/h/.local/share/applications", "/a/applications", "/b/applications"));
    const ScopedEnvironment otherData("XDG_DATA_HOME", "/d"), none("XDG_DATA_DIRS", std::nullopt);
    EXPECT_THAT(
        applicationFolders(),
        ElementsAre("/d/applications", "/usr/local/share/applications", "/usr/share/applications"));
}

}  // namespace
}  // namespace orvel
