#include "OrvelAgent/Platform/Linux/LinuxTextFocus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>

#include "OrvelAgent/Desk/FocusWatcher.h"
#include "OrvelAgent/Platform/Fake/FakeWorkspace.h"
#include "OrvelAgent/Platform/Linux/MainQueueForTests.h"
#include "Tests/Support/FieldWindow.h"
#include "Tests/Support/ScopedEnvironment.h"

namespace orvel {

void PrintTo(const TextFocus::Element& element, std::ostream* out) {
    *out << element.role.value_or("no role") << (element.canSelectText ? ", selects" : "");
}

namespace {

using Element = TextFocus::Element;
using Toolkit = FieldWindow::Toolkit;

const Element noText, line{"AXTextField", true}, area{"AXTextArea", true},
    search{"AXSearchField", true}, onlySelects{std::nullopt, true};

// One desktop for all; each test begins without a window.
struct LinuxTextFocusTest : testing::Test {
    static void SetUpTestSuite() { desktop = std::make_unique<AccessibleDesktop>(); }
    static void TearDownTestSuite() { desktop.reset(); }
    static std::unique_ptr<AccessibleDesktop> desktop;

    ScopedEnvironment session{"DBUS_SESSION_BUS_ADDRESS", desktop->bus().address()};
    MainQueue main;
    std::unique_ptr<TextFocus> focus = TextFocus::create(main.queue);

    std::optional<Element> now() {
        return main.run([this] { return focus->focusedElement(); });
    }
    bool becomes(const std::optional<Element>& element) {
        return eventually([&] { return now() == element; });
    }
    void observe(bool observed = true) {
        main.run([&] { focus->setObserved(observed); });
    }

    struct Row {
        const char* field;
        Element want;
    };
    // Before each field one of the other kind, so that it is the field that is seen.
    void showsFields(FieldWindow& window, const std::vector<Row>& rows) {
        ASSERT_TRUE(becomes(line)) << testing::PrintToString(now());
        for (const auto& [field, want] : rows) {
            window.focus(want == noText ? "line" : "button");
            EXPECT_TRUE(becomes(want == noText ? line : noText)) << "before " << field;
            window.focus(field);
            EXPECT_TRUE(becomes(want)) << field << ": " << testing::PrintToString(now());
        }
    }
};

std::unique_ptr<AccessibleDesktop> LinuxTextFocusTest::desktop;

TEST_F(LinuxTextFocusTest, fieldsOfGtk3) {
    FieldWindow window(*desktop, Toolkit::gtk3);
    observe();
    showsFields(window, {{"password", line},
                         {"search", line},
                         {"area", area},
                         {"number", onlySelects},
                         {"terminal", area},
                         {"readonly", noText}});
}

TEST_F(LinuxTextFocusTest, fieldsOfGtk4) {
    FieldWindow window(*desktop, Toolkit::gtk4);
    observe();
    showsFields(window, {{"password", line},
                         {"search", search},
                         {"area", area},
                         {"number", onlySelects},
                         {"readonly", noText}});
}

TEST_F(LinuxTextFocusTest, fieldsOfQt) {
    FieldWindow window(*desktop, Toolkit::qt);
    observe();
    showsFields(window, {{"password", line},
                         {"area", area},
                         {"plain", area},
                         {"number", onlySelects},
                         {"combo", Element{"AXComboBox", false}},
                         {"choice", noText},
                         {"readonly", noText}});
}

TEST_F(LinuxTextFocusTest, fieldsOfABrowser) {
    FieldWindow window(*desktop, Toolkit::browser);
    observe();
    showsFields(window, {{"password", line},
                         {"search", search},
                         {"area", area},
                         {"edit", onlySelects},
                         {"number", onlySelects},
                         {"text", noText},
                         {"readonly", noText},
                         {"choice", noText}});
}

TEST_F(LinuxTextFocusTest, theWatcherReportsTextAndNoText) {
    FieldWindow window(*desktop, Toolkit::gtk3);
    FakeWorkspace workspace;
    std::atomic<int> texts{0}, others{0};
    const auto watcher = std::make_shared<FocusWatcher>(main.queue, workspace, *focus);
    watcher->onTextFocus = [&](bool isText) { ++(isText ? texts : others); };
    main.run([&] { watcher->start(); });
    EXPECT_TRUE(eventually([&] { return texts == 1; }));
    window.focus("button");
    const int before = others;
    EXPECT_TRUE(eventually([&] { return others == before + 1; }));
    window.focus("area");
    EXPECT_TRUE(eventually([&] { return texts == 2; }));
    main.run([&] { watcher->stop(); });
    EXPECT_EQ(now(), std::nullopt);
}

TEST_F(LinuxTextFocusTest, whatHasTheFocusAlreadyIsFound) {
    for (const auto toolkit : {Toolkit::gtk4, Toolkit::qt, Toolkit::browser}) {
        FieldWindow window(*desktop, toolkit);
        ASSERT_TRUE(eventually([&] { return desktop->applications() == 1; }));
        EXPECT_EQ(now(), std::nullopt) << "not observed";
        observe();
        EXPECT_TRUE(becomes(line)) << int(toolkit);
        observe(false);
        EXPECT_EQ(now(), std::nullopt);
    }
}

TEST_F(LinuxTextFocusTest, anotherWindowInFrontHasTheFocus) {
    observe();
    FieldWindow first(*desktop, Toolkit::gtk3);
    ASSERT_TRUE(becomes(line));
    {
        const BackgroundProcess silent(
            {.command = {"xterm"}, .environment = desktop->environment()});
        EXPECT_TRUE(becomes(std::nullopt)) << "it has no accessibility";
        // What happens in the background is not the keyboard's business.
        first.focus("area");
    }
    EXPECT_TRUE(becomes(area)) << "in front again";

    FieldWindow second(*desktop, Toolkit::qt);
    ASSERT_TRUE(becomes(line));
    second.process().signal(SIGKILL);
    EXPECT_TRUE(becomes(area)) << "the first one's";
    first.process().signal(SIGKILL);
    EXPECT_TRUE(becomes(std::nullopt));
}

TEST_F(LinuxTextFocusTest, anApplicationThatHangsHoldsUpNoOther) {
    observe();
    FieldWindow hung(*desktop, Toolkit::gtk3);
    ASSERT_TRUE(becomes(line));
    hung.focus("button");
    ASSERT_TRUE(becomes(noText));
    hung.process().signal(SIGSTOP);
    FieldWindow other(*desktop, Toolkit::gtk3);
    EXPECT_TRUE(becomes(line));
    hung.process().signal(SIGCONT);
}

TEST_F(LinuxTextFocusTest, nonsenseOnTheBusChangesNothing) {
    FieldWindow window(*desktop, Toolkit::gtk3);
    observe();
    ASSERT_TRUE(becomes(line));
    const std::string state = "org.a11y.atspi.Event.Object.StateChanged";
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {},
             {"string:focused"},
             {"string:focused", "string:1"},
             {"string:focused", "int32:1"},
             {"string:focused", "int32:0", "int32:0", "variant:string:", "int32:7"},
             {"int32:1", "int32:1"}}) {
        desktop->signal("/org/a11y/atspi/accessible/2", state, arguments);
    }
    for (const char* name : {"Window.Deactivate", "Object.ChildrenChanged"})
        desktop->signal("/x", std::string("org.a11y.atspi.Event.") + name, {});
    EXPECT_EQ(now(), line);
    window.focus("area");
    EXPECT_TRUE(becomes(area));
}

TEST_F(LinuxTextFocusTest, theDesktopIsLeftAsItWas) {
    EXPECT_TRUE(eventually([] { return desktop->isAccessibilityOn(); }));
    EXPECT_EQ(desktop->listeners().find("Focused"), std::string::npos);
    observe();
    EXPECT_TRUE(
        eventually([] { return desktop->listeners().find("Focused") != std::string::npos; }));
    observe(false);
    EXPECT_TRUE(
        eventually([] { return desktop->listeners().find("Focused") == std::string::npos; }));
    EXPECT_TRUE(desktop->isAccessibilityOn()) << "for browsers that start before the next phone";
    focus.reset();
    EXPECT_FALSE(desktop->isAccessibilityOn());

    desktop->switchAccessibility(true);
    focus = TextFocus::create(main.queue);
    observe();
    EXPECT_TRUE(
        eventually([] { return desktop->listeners().find("Focused") != std::string::npos; }));
    focus.reset();
    EXPECT_TRUE(desktop->isAccessibilityOn()) << "somebody else's";
    desktop->switchAccessibility(false);
}

TEST_F(LinuxTextFocusTest, theServiceMayComeLateAndComeAgain) {
    desktop->stopAccessibility();
    observe();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(now(), std::nullopt);
        desktop->startAccessibility();
        {
            FieldWindow window(*desktop, Toolkit::gtk3);
            EXPECT_TRUE(becomes(line));
            desktop->stopAccessibility();
            EXPECT_TRUE(becomes(std::nullopt));
        }
    }
    desktop->startAccessibility();
}

TEST(LinuxTextFocusAloneTest, withoutASessionThereIsNothing) {
    const TemporaryFolder runtime;
    const std::optional<std::string> none, nobody = "unix:path=" + (runtime / "bus");
    for (const auto& address : {none, nobody}) {
        const ScopedEnvironment bus{"DBUS_SESSION_BUS_ADDRESS", address};
        const ScopedEnvironment place{"XDG_RUNTIME_DIR", runtime.path.string()};
        MainQueue main;
        const auto focus = TextFocus::create(main.queue);
        main.run([&] {
            focus->setObserved(true);
            EXPECT_EQ(focus->focusedElement(), std::nullopt);
        });
    }
}

}  // namespace
}  // namespace orvel
