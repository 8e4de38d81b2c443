#include "OrvelAgent/Platform/Linux/X11Workspace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "OrvelAgent/Desk/FocusWatcher.h"
#include "OrvelAgent/Platform/Fake/FakeTextFocus.h"
#include "OrvelAgent/Platform/Linux/MainQueueForTests.h"
#include "OrvelAgent/Platform/Linux/XProgramForTests.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/XServer.h"

using testing::ElementsAre;

namespace orvel {
namespace {

using Application = Workspace::Application;

class X11WorkspaceTest : public testing::Test {
protected:
    X11WorkspaceTest() {
        add("org.example.TextEditor", "Name=Text Editor\nName[tr]=Metin Düzenleyici\n");
        add("debian-xterm", "Name=XTerm\nName[tr]=X Uçbirimi\nStartupWMClass=XTerm\nExec=xterm\n");
    }
    ~X11WorkspaceTest() override {
        main.run([this] { workspace.reset(); });
    }

    void add(const std::string& id, const std::string& lines) {
        std::ofstream(folder / (id + ".desktop")) << "[Desktop Entry]\nType=Application\n" << lines;
    }
    void open() {
        main.run([this] {
            workspace = std::make_unique<X11Workspace>(
                main.queue,
                X11Workspace::Options{server.display(), {folder.path.string()}, {"tr_TR", "tr"}});
            workspace->observeActivations(
                [this](const Application& application) { told.push_back(application); });
        });
    }
    Application front() {
        return main.run([this] { return workspace->frontmost(); });
    }
    // The next activation is that one.
    bool isTold(const Application& application) {
        return eventually([&] {
            return main.run([&] {
                if (told.empty()) return false;
                EXPECT_EQ(told.front().bundleID, application.bundleID);
                EXPECT_EQ(told.front().name, application.name);
                told.erase(told.begin());
                return true;
            });
        });
    }
    std::size_t waiting() {
        return main.run([this] { return told.size(); });
    }

    std::unique_ptr<BackgroundProcess> start(std::vector<std::string> command) {
        return std::make_unique<BackgroundProcess>(
            BackgroundProcess::Options{.command = std::move(command),
                                       .environment = {{"DISPLAY", server.display()},
                                                       {"HOME", folder.path.string()},
                                                       {"XDG_CONFIG_HOME", folder / "config"},
                                                       {"XDG_CACHE_HOME", folder / "cache"}},
                                       .outputFile = folder / "log"});
    }
    // Returns when it takes care of new windows.
    void startManager() {
        const std::string file = folder / "started";
        std::filesystem::remove(file);
        manager = start({"openbox", "--sm-disable", "--startup", "touch " + file});
        EXPECT_TRUE(eventually([&] { return std::filesystem::exists(file); }));
    }

    XServer server;
    TemporaryFolder folder;
    std::unique_ptr<BackgroundProcess> manager;
    MainQueue main;
    std::unique_ptr<X11Workspace> workspace;
    std::vector<Application> told;  // on the main queue
};

// A program with windows.
class WindowedProgram : public XProgram {
public:
    using XProgram::XProgram;

    xcb_window_t openWindow(const std::map<std::string, std::string>& properties,
                            xcb_window_t openedFor = XCB_NONE) {
        const xcb_window_t opened = xcb_generate_id(x11.get());
        xcb_create_window(x11.get(), XCB_COPY_FROM_PARENT, opened, x11.root(), 10, 10, 100, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        for (const auto& [name, value] : properties)
            set(opened, atom(name), atom("UTF8_STRING"), value);
        if (openedFor != XCB_NONE)
            setValues(opened, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW, {openedFor});
        xcb_map_window(x11.get(), opened);
        sync();
        return opened;
    }
    // As a task bar does.
    void activate(xcb_window_t target) {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = target;
        message.type = atom("_NET_ACTIVE_WINDOW");
        message.data.data32[0] = 2;
        xcb_send_event(x11.get(), 0, x11.root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&message));
        sync();
    }
    void closeWindow(xcb_window_t opened) {
        xcb_destroy_window(x11.get(), opened);
        sync();
    }
};

std::string wmClass(const std::string& instance, const std::string& name) {
    return instance + '\0' + name + '\0';
}

TEST_F(X11WorkspaceTest, tellsWhichApplicationIsInFront) {
    startManager();
    open();
    EXPECT_EQ(front(), Application{});
    const Application editor{"org.example.TextEditor", "Metin Düzenleyici"};
    const Application terminal{"debian-xterm", "X Uçbirimi"};
    WindowedProgram program(server.display());
    const auto first = program.openWindow({{"_GTK_APPLICATION_ID", "org.example.TextEditor"}});
    EXPECT_TRUE(isTold(editor));
    EXPECT_EQ(front(), editor);
    const auto xterm = start({"xterm"});
    EXPECT_TRUE(isTold(terminal));
    // Another window of the same application, and a dialog of its.
    program.openWindow({{"WM_CLASS", wmClass("xterm", "XTerm")}});
    EXPECT_TRUE(isTold(terminal));
    program.activate(program.openWindow({{"WM_NAME", "Open"}}, first));
    EXPECT_TRUE(isTold(editor));
    program.openWindow({{"_KDE_NET_WM_DESKTOP_FILE", "org.example.Unknown"},
                        {"WM_CLASS", wmClass("unknown", "Unknown")}});
    EXPECT_TRUE(isTold({"org.example.Unknown", "Unknown"}));
    program.openWindow({{"WM_CLASS", wmClass("tool", "Tool \xFE")}});
    EXPECT_TRUE(isTold({"", "Tool þ"}));
    program.openWindow({{"_NET_WM_NAME", "Başlık"}, {"WM_NAME", "Title"}});
    EXPECT_TRUE(isTold({"", "Başlık"}));
    program.openWindow({});
    EXPECT_TRUE(isTold({"", ""}));
    program.activate(first);
    EXPECT_TRUE(isTold(editor));
    // Installed while we run.
    add("late", "Name=Late\n");
    program.openWindow({{"WM_CLASS", wmClass("late", "Late")}});
    EXPECT_TRUE(isTold({"late", "Late"}));
    EXPECT_EQ(waiting(), 0u);
}

TEST_F(X11WorkspaceTest, windowsAndWindowManagersComeAndGo) {
    const Application one{"", "One"}, two{"", "Two"}, none;
    WindowedProgram program(server.display());
    const auto first = program.openWindow({{"WM_CLASS", wmClass("one", "One")}});
    open();
    startManager();
    program.activate(first);
    EXPECT_TRUE(isTold(one));
    const auto second = program.openWindow({{"WM_CLASS", wmClass("two", "Two")}});
    EXPECT_TRUE(isTold(two));
    // The first one is next in its turn, or nothing is.
    program.closeWindow(second);
    program.activate(first);
    EXPECT_TRUE(isTold(one));
    program.closeWindow(first);
    EXPECT_TRUE(isTold(none));
    EXPECT_EQ(front(), none);
    const auto third = program.openWindow({{"WM_CLASS", wmClass("two", "Two")}});
    EXPECT_TRUE(isTold(two));
    // What it left on the root window says nothing any more.
    manager->signal(SIGKILL);
    manager.reset();
    EXPECT_TRUE(isTold(none));
    startManager();
    program.activate(third);
    EXPECT_TRUE(isTold(two));
    // Opened later, it is known without being told.
    main.run([this] { workspace.reset(); });
    open();
    EXPECT_TRUE(eventually([&] { return front() == two; }));

    server.kill();
    EXPECT_TRUE(eventually([&] { return front() == none; }));
    server.restart();
    startManager();
    WindowedProgram next(server.display());
    const auto fourth = next.openWindow({{"WM_CLASS", wmClass("one", "One")}});
    EXPECT_TRUE(eventually([&] {
        next.activate(fourth);
        return front() == one;
    }));
}

TEST_F(X11WorkspaceTest, aNameThatTheManagerLeftBehindIsNotBelieved) {
    WindowedProgram program(server.display());
    const auto window = program.openWindow({{"WM_CLASS", wmClass("one", "One")}});
    const auto root = program.x11.root();
    const auto active = program.atom("_NET_ACTIVE_WINDOW");
    const auto check = program.atom("_NET_SUPPORTING_WM_CHECK");
    program.setValues(root, active, XCB_ATOM_WINDOW, {window});
    program.setValues(root, check, XCB_ATOM_WINDOW, {0x7FFFFF});
    program.sync();
    open();
    program.setValues(program.window.id(), check, XCB_ATOM_WINDOW, {program.window.id()});
    program.setValues(root, check, XCB_ATOM_WINDOW, {program.window.id()});
    program.sync();
    EXPECT_TRUE(isTold({"", "One"}));
    // Nonsense is no window, and neither is one that has gone.
    program.set(root, active, XCB_ATOM_STRING, "nonsense");
    program.sync();
    EXPECT_TRUE(isTold({}));
    program.setValues(root, active, XCB_ATOM_WINDOW, {0x7FFFFF});
    program.setValues(root, active, XCB_ATOM_WINDOW, {window});
    program.sync();
    EXPECT_TRUE(isTold({"", "One"}));
    // Between two windows there is none for a moment.
    const auto other = program.openWindow({{"WM_CLASS", wmClass("two", "Two")}});
    program.setValues(root, active, XCB_ATOM_WINDOW, {XCB_NONE});
    program.setValues(root, active, XCB_ATOM_WINDOW, {other});
    program.sync();
    EXPECT_TRUE(isTold({"", "Two"}));
    EXPECT_EQ(waiting(), 0u);
}

// With the watcher that uses it.
TEST_F(X11WorkspaceTest, servesTheWatcher) {
    startManager();
    open();
    WindowedProgram program(server.display());
    program.openWindow({{"WM_CLASS", wmClass("one", "One")}});
    EXPECT_TRUE(isTold({"", "One"}));
    FakeTextFocus focus;
    std::shared_ptr<FocusWatcher> watcher;
    std::vector<std::string> names;
    main.run([&] {
        watcher = std::make_shared<FocusWatcher>(main.queue, *workspace, focus);
        watcher->onFrontApp = [&](auto, auto name) { names.push_back(name); };
        watcher->start();
    });
    program.openWindow({{"WM_CLASS", wmClass("two", "Two")}});
    EXPECT_TRUE(eventually([&] { return main.run([&] { return names.size(); }) == 2; }));
    main.run([&] {
        EXPECT_THAT(names, ElementsAre("One", "Two"));
        watcher->stop();
        watcher.reset();
    });
}

}  // namespace
}  // namespace orvel
