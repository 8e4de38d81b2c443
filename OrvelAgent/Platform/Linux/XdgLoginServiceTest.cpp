#include "OrvelAgent/Platform/Linux/XdgLoginService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {
namespace {

class XdgLoginServiceTest : public testing::Test {
protected:
    XdgLoginServiceTest() {
        std::filesystem::create_directories(folder / "etc");
        addProgram(program);
    }
    static void addProgram(const std::string& path) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        writeFile(path, "#!/bin/sh\n");
        chmod(path.c_str(), 0755);
    }
    XdgLoginService service(const std::string& desktop = "GNOME") const {
        return XdgLoginService({folder / "user/autostart", {folder / "etc"}, program, desktop});
    }
    std::string userFile() const { return folder / "user/autostart/orvel-agent.desktop"; }
    std::string systemFile() const { return folder / "etc/orvel-agent.desktop"; }
    void addUser(const std::string& text) {
        std::filesystem::create_directories(folder / "user/autostart");
        writeFile(userFile(), text);
    }
    // Of a program that is there.
    std::string entry(const std::string& more = "") const {
        return "[Desktop Entry]\nType=Application\nName=Orvel Agent\nExec=" + program + "\n" + more;
    }

    TemporaryFolder folder;
    const std::string program = folder / "bin/orvel-agent";
};

TEST_F(XdgLoginServiceTest, saysWhatTheNextLoginWillDo) {
    const std::string is = entry();
    struct Row {
        const char* name;
        std::optional<std::string> user, system;
        bool registered;
        const char* desktop = "GNOME";
    };
    const Row rows[] = {
        {"nothing", {}, {}, false},
        {"the user's", is, {}, true},
        {"the system's", {}, is, true},
        {"the user's goes first", entry("Hidden=true\n"), is, false},
        {"and the other way round", is, entry("Hidden=true\n"), true},
        {"hidden by the system", {}, entry("Hidden=true\n"), false},
        {"switched off by GNOME", entry("X-GNOME-Autostart-enabled=false\n"), {}, false},
        {"not hidden", entry("Hidden=false\nX-GNOME-Autostart-enabled=true\n"), {}, true},
        {"odd booleans", entry("Hidden=perhaps\nX-GNOME-Autostart-enabled=\n"), {}, true},
        {"for this desktop", entry("OnlyShowIn=KDE;GNOME;\n"), {}, true},
        {"for another", entry("OnlyShowIn=KDE;\n"), {}, false},
        {"one of two names", entry("OnlyShowIn=KDE;\n"), {}, true, "X-Own:KDE"},
        {"not for this one", entry("NotShowIn=GNOME;\n"), {}, false},
        {"no desktop to tell", entry("OnlyShowIn=KDE;\n"), {}, true, ""},
        {"no such program", "[Desktop Entry]\nType=Application\nExec=/nowhere/x\n", {}, false},
        {"a name to look for", "[Desktop Entry]\nType=Application\nExec=sh -c true\n", {}, true},
        {"an unknown name", "[Desktop Entry]\nType=Application\nExec=orvel-nowhere\n", {}, false},
        {"what it needs is missing", entry("TryExec=orvel-nowhere\n"), {}, false},
        {"no program", "[Desktop Entry]\nType=Application\n", {}, false},
        {"an open quote", "[Desktop Entry]\nType=Application\nExec=\"sh\n", {}, false},
        {"no application", "[Desktop Entry]\nType=Link\nExec=sh\n", {}, false},
        {"empty", "", is, false},
        {"nonsense", "\x01\xFF=[", is, false},
        {"another file", "[Other]\nType=Application\nExec=sh\n", {}, false},
        {"immense", entry("#" + std::string(100'000, 'x') + "\n"), {}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove(userFile());
        std::filesystem::remove(systemFile());
        if (row.user) addUser(*row.user);
        if (row.system) writeFile(systemFile(), *row.system);
        EXPECT_EQ(service(row.desktop).isRegistered(), row.registered);
    }
}

TEST_F(XdgLoginServiceTest, registersWithAnEntryOfItsOwnAndTakesItAwayAgain) {
    service().registerProgram();
    EXPECT_EQ(fileText(userFile()),
              "[Desktop Entry]\nType=Application\nName=Orvel Agent\nExec=" + program +
                  " --at-login\nTerminal=false\nX-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(service().isRegistered());
    service().unregisterProgram();
    EXPECT_FALSE(std::filesystem::exists(userFile()));
    EXPECT_FALSE(service().isRegistered());
}

TEST_F(XdgLoginServiceTest, goesAgainstTheSystemsEntryWithOneThatSaysNo) {
    writeFile(systemFile(), entry());
    service().registerProgram();
    EXPECT_FALSE(std::filesystem::exists(userFile())) << "it starts already";
    for (int round = 0; round < 2; ++round) {
        service().unregisterProgram();
        EXPECT_FALSE(service().isRegistered());
        EXPECT_THAT(fileText(userFile()), testing::HasSubstr("Hidden=true\n"));
        service().registerProgram();
        EXPECT_TRUE(service().isRegistered());
    }
    EXPECT_EQ(fileText(systemFile()), entry());
}

TEST_F(XdgLoginServiceTest, changesAUsersEntryNoFurtherThanNeeded) {
    const std::string own = "# mine\n\n" + entry("X-GNOME-Autostart-Delay=20\n");
    addUser(own);
    service().unregisterProgram();
    EXPECT_FALSE(service().isRegistered());
    EXPECT_THAT(fileText(userFile()), testing::StartsWith("# mine\n"));
    service().registerProgram();
    EXPECT_TRUE(service().isRegistered());
    EXPECT_EQ(fileText(userFile()), own);

    // Whatever kept it from starting is gone.
    addUser(
        "[Desktop Entry]\nName=A\nExec=/nowhere/orvel-agent --x\nTryExec=/nowhere/x\n"
        "Hidden=true\nX-GNOME-Autostart-enabled=false\nOnlyShowIn=KDE;\n");
    service().registerProgram();
    EXPECT_TRUE(service().isRegistered());
    EXPECT_THAT(fileText(userFile()), testing::HasSubstr("Name=A\n"));
}

TEST_F(XdgLoginServiceTest, destroysNothingThatItCannotRead) {
    addUser("my notes");
    testing::internal::CaptureStderr();
    service().registerProgram();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "orvel: the autostart entry was none; it was kept aside\n");
    EXPECT_TRUE(service().isRegistered());
    EXPECT_EQ(fileText(userFile() + ".kept1"), "my notes");

    // A link stays one.
    const std::string kept = folder / "dotfiles";
    writeFile(kept, entry("Hidden=true\n"));
    std::filesystem::remove(userFile());
    std::filesystem::create_symlink(kept, userFile());
    service().registerProgram();
    EXPECT_TRUE(std::filesystem::is_symlink(userFile()));
    EXPECT_EQ(fileText(kept), entry());

    // These stay as they are, and it is said.
    const auto refused = [&](auto arrange) {
        std::filesystem::remove_all(folder / "user");
        std::filesystem::create_directories(folder / "user/autostart");
        arrange();
        testing::internal::CaptureStderr();
        service().registerProgram();
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    testing::StartsWith("orvel: the autostart entry cannot be changed: "));
        EXPECT_FALSE(service().isRegistered());
    };
    refused([&] { std::filesystem::create_symlink("nowhere", userFile()); });
    refused([&] { std::filesystem::create_directory(userFile()); });
    refused([&] {
        std::filesystem::remove(folder / "user/autostart");
        writeFile(folder / "user/autostart", "a file");
    });
}

TEST(AutostartEntry, quotesWhatHasToBe) {
    const struct {
        const char *program, *quoted;
    } rows[] = {
        {"orvel-agent", "orvel-agent"},
        {"/opt/orvel/orvel-agent", "/opt/orvel/orvel-agent"},
        {"/home/a b/orvel-agent", "\"/home/a b/orvel-agent\""},
        {"/a\"b`c$d\\e/x", R"("/a\"b\`c\$d\\e/x")"},
        {"/100%/x", "/100%%/x"},
        {"/ş#'/x", "\"/ş#'/x\""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(quotedForExec(row.program), row.quoted);
}

TEST_F(XdgLoginServiceTest, startsAProgramOfAnyPath) {
    for (const char* name :
         {"plain", "with space", "q\"`$\\t", "100%%f", "ş'#;&(", "tab\tnl\nx", " leading"}) {
        SCOPED_TRACE(name);
        const std::string path = folder / ("any/" + std::string(name) + "/orvel-agent");
        addProgram(path);
        XdgLoginService any({folder / "user2/autostart", {}, path, ""});
        any.registerProgram();
        EXPECT_TRUE(any.isRegistered());
        any.unregisterProgram();
        EXPECT_FALSE(std::filesystem::exists(folder / "user2/autostart/orvel-agent.desktop"));
    }
}

TEST(XdgLoginService, findsItsPlacesInTheEnvironment) {
    const ScopedEnvironment home("HOME", "/h"), config("XDG_CONFIG_HOME", "relative"),
        dirs("XDG_CONFIG_DIRS", "/a:relative:/b:"), desktop("XDG_CURRENT_DESKTOP", "KDE");
    const auto places = XdgLoginService::Places::ofUser();
    EXPECT_EQ(places.userFolder, "/h/.config/autostart");
    EXPECT_THAT(places.systemFolders, testing::ElementsAre("/a/autostart", "/b/autostart"));
    EXPECT_THAT(places.program, testing::EndsWith("/orvel-linux-tests"));
    EXPECT_EQ(places.desktop, "KDE");
    const ScopedEnvironment own("XDG_CONFIG_HOME", "/c"), none("XDG_CONFIG_DIRS", std::nullopt);
    EXPECT_EQ(XdgLoginService::Places::ofUser().userFolder, "/c/autostart");
    EXPECT_THAT(XdgLoginService::Places::ofUser().systemFolders,
                testing::ElementsAre("/etc/xdg/autostart"));
}

}  // namespace
}  // namespace orvel
