#include "OrvelAgent/Platform/Linux/LinuxEventPoster.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/X11Monitors.h"
#include "OrvelAgent/Platform/Linux/XkbHeader.h"
#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Base/Unicode.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/XDesk.h"
#include "Tests/Support/XHands.h"
#include "Tests/Support/XReader.h"
#include "Tests/Support/XServer.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Point = EventPoster::Point;
using Motion = EventPoster::Motion;
constexpr std::uint32_t shift = EventPoster::shiftFlag, control = EventPoster::controlFlag,
                        alternate = EventPoster::alternateFlag, command = EventPoster::commandFlag,
                        function = EventPoster::secondaryFunctionFlag;

// X keycodes of a server with evdev's.
constexpr int keyA = 38, keyLeftShift = 50, keyLeftControl = 37;
constexpr std::uint16_t macA = 0, macS = 1, macReturn = 36, macShift = 56, macControl = 59;

// A server, a program, somebody at the keyboard, and the poster.
class Desk {
public:
    Desk() {
        makePoster();
        EXPECT_TRUE(isConnected());
    }
    void makePoster() { poster = std::make_unique<LinuxEventPoster>(defaults, server.display()); }
    bool isConnected() {
        return eventually([&] { return poster->displayBounds({}).has_value(); });
    }

    // Until everything posted so far has been carried out: the poster puts the pointer somewhere.
    void settle() {
        const int x = settledAt = settledAt == 600 ? 601 : 600;
        poster->postMotion(Motion::moved, {double(x), 470}, 0, 0);
        EXPECT_TRUE(eventually([&] {
            const auto [seenX, y, time] = reader.lastMotion();
            return seenX == x;
        }));
    }
    // What the program received, without that motion.
    std::string received() {
        settle();
        std::string all = reader.take();
        for (auto at = all.find(" m@60"); at != all.npos; at = all.find(" m@60"))
            all.erase(at, 10);
        return all.starts_with("m@60") ? all.substr(std::min<std::size_t>(all.size(), 10)) : all;
    }

    void key(std::uint16_t code, bool down, std::uint32_t flags = 0) {
        poster->postKey(code, down, flags);
    }
    void tap(std::uint16_t code, std::uint32_t flags = 0) {
        key(code, true, flags);
        key(code, false, flags);
    }
    // As InputInjector cuts it; with line feeds left out.
    void type(const std::string& utf8) {
        const auto units = utf16From(utf8);
        for (std::size_t at = 0; at < units.size(); at += 16)
            poster->postText(std::u16string_view(units).substr(at, 16));
    }
    std::string typed(const std::string& utf8) {
        type(utf8);
        settle();
        return reader.takeText();
    }

    FakeDefaults defaults;
    XServer server;
    XHands hands{server.display()};
    XReader reader{server.display()};
    std::unique_ptr<LinuxEventPoster> poster;

private:
    int settledAt = 0;
};

TEST(LinuxEventPoster, movesAndClicksWhereItIsTold) {
    Desk desk;
    auto& poster = *desk.poster;
    const struct {
        const char* name;
        std::function<void()> post;
        const char* want;
    } rows[] = {
        {"a motion",
         [&] {
             poster.postMotion(Motion::moved, {10, 20.9}, 1, 1);
         },
         "m@10,20"},
        {"beyond the screen",
         [&] {
             poster.postMotion(Motion::moved, {1e9, -5}, 1, 1);
         },
         "m@639,0"},
        {"a double click",
         [&] {
             for (const int clicks : {1, 2}) {
                 poster.postButton(MouseButton::left, true, {30, 40}, clicks);
                 poster.postButton(MouseButton::left, false, {30, 40}, clicks);
             }
         },
         "m@30,40 +b1@30,40 -b1@30,40 +b1@30,40 -b1@30,40"},
        {"a drag with the right button",
         [&] {
             poster.postButton(MouseButton::right, true, {30, 40}, 1);
             poster.postMotion(Motion::rightDragged, {50, 60}, 20, 20);
             poster.postButton(MouseButton::right, false, {50, 60}, 1);
         },
         "m@30,40 +b3@30,40 m@50,60 -b3@50,60"},
        {"pressed twice, released twice",
         [&] {
             for (const bool down : {true, true, false, false})
                 poster.postButton(MouseButton::left, down, {50, 60}, 1);
         },
         "m@50,60 +b1@50,60 -b1@50,60"},
        {"a wheel, in pixels, both ways",
         [&] {
             poster.postScroll(0, 31, ScrollPhase::began);
             poster.postScroll(-14, -46, ScrollPhase::changed);
             poster.postScroll(-1, 0, ScrollPhase::ended);
             poster.postScroll(15, 0, ScrollPhase::momentum);
         },
         "+b4 -b4 +b4 -b4 +b5 -b5 +b5 -b5 +b5 -b5 +b7 -b7 +b6 -b6"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        desk.received();
        row.post();
        EXPECT_EQ(desk.received(), row.want);
    }
}

TEST(LinuxEventPoster, pressesKeysByTheirPlaceUnderAnyLayout) {
    Desk desk;
    // The letters right of P: codes 33 and 30; below, right of L: 41; the one beside the left
    // Shift.
    const struct {
        const char* layout;
        const char* want;
    } rows[] = {
        {"us", "q bracketleft bracketright semicolon less 1 Return F1 Left KP_1"},
        {"tr", "q gbreve udiaeresis scedilla less 1 Return F1 Left KP_1"},
        {"tr(f)", "f q w y less 1 Return F1 Left KP_1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.layout);
        desk.hands.setLayout(row.layout);
        desk.received();
        for (const std::uint16_t code : {12, 33, 30, 41, 10, 18, 36, 122, 123, 83})
            desk.tap(code, code == 122 || code == 123 ? function : 0);
        std::string want, symbol;
        std::istringstream symbols(row.want);
        while (symbols >> symbol) {
            if (symbol == "KP_1") symbol = "KP_End";  // Num Lock is off
            want += (want.empty() ? "+" : " +") + symbol + " -" + symbol;
        }
        EXPECT_EQ(desk.received(), want);
    }
    // The second of two layouts.
    desk.hands.setLayout("us,tr");
    desk.hands.chooseLayout(1);
    desk.received();
    desk.tap(33);
    EXPECT_NE(desk.received().find("gbreve"), std::string::npos);
}

TEST(LinuxEventPoster, givesEachKeyTheModifiersOfItsMessage) {
    Desk desk;
    const struct {
        const char* name;
        std::function<void()> post;
        std::string want;
    } rows[] = {
        {"shift", [&] { desk.tap(macA, shift); }, "+Shift_L +A:1 -A:1 -Shift_L:1"},
        {"command is control", [&] { desk.tap(macA, command); },
         "+Control_L +a:4 -a:4 -Control_L:4"},
        {"command with control is one", [&] { desk.tap(macA, command | control); },
         "+Control_L +a:4 -a:4 -Control_L:4"},
        {"the command key itself", [&] { desk.tap(55, command); }, "+Control_L -Control_L:4"},
        {"command may be super",
         [&] {
             desk.defaults.set("commandKey", "super");
             desk.tap(macA, command);
             desk.tap(55, command);
             desk.defaults.remove("commandKey");
         },
         "+Super_L +a:40 -a:40 -Super_L:40 +Super_L -Super_L:40"},
        {"option is alt", [&] { desk.tap(macA, alternate); }, "+Alt_L +a:8 -a:8 -Alt_L:8"},
        {"the user's shift is left alone",
         [&] {
             desk.hands.press(keyLeftShift);
             desk.tap(macA, shift);
             desk.settle();
             desk.hands.release(keyLeftShift);
         },
         "+Shift_L +A:1 -A:1 -Shift_L:1"},
        {"the phone's shift as a key",
         [&] {
             desk.key(macShift, true, shift);
             desk.tap(macA, shift);
             desk.key(macShift, false);
         },
         "+Shift_L +A:1 -A:1 -Shift_L:1"},
        {"caps lock",
         [&] {
             desk.tap(57);
             desk.tap(macA);
             desk.tap(57);
         },
         "+Caps_Lock -Caps_Lock:2 +A:2 -A:2 +Caps_Lock:2 -Caps_Lock:2"},
        {"a key that no keyboard has", [&] { desk.tap(300); }, ""},
        {"a release without its press", [&] { desk.key(macA, false); }, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        desk.received();
        row.post();
        EXPECT_EQ(desk.received(), row.want);
        EXPECT_EQ(desk.hands.down(), "");
    }
}

TEST(LinuxEventPoster, doesNotLetTheServerRepeatItsKeys) {
    Desk desk;
    desk.key(macA, true);
    desk.key(macA, true);
    desk.key(macS, true);
    EXPECT_EQ(desk.received(), "+a -a +a +s") << "only the phone repeats";
    // The user's key repeats, which takes as long as the first repetition of ours would.
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again);
        desk.hands.press(keyA + 2);
        EXPECT_TRUE(
            eventually([&] { return desk.reader.seenText().find("ddd") != std::string::npos; }));
        desk.hands.release(keyA + 2);
        EXPECT_EQ(desk.reader.takeText().find_first_not_of('d'), std::string::npos);
        desk.key(macS, true);
        desk.received();
    }
    desk.poster->releaseAll();
    desk.settle();
    EXPECT_EQ(desk.hands.down(), "");
    // Other programs' keys repeat again.
    desk.reader.take();
    desk.hands.post(keyA, true);
    EXPECT_TRUE(
        eventually([&] { return desk.reader.seenText().find("aaa") != std::string::npos; }));
    desk.hands.post(keyA, false);
}

// 325 characters of many scripts, none of them twice in a row.
std::string mixedText() {
    std::u32string all = U"Şu ılık çöğüş, İĞÜÖÇ! 12% {[]} \\|~^`\"'@#$€£¥ é è ñ ß å ø æ þ ð ";
    for (char32_t c = U'а'; c <= U'я'; ++c)
        all += c;
    for (char32_t c = U'α'; c <= U'ω'; ++c)
        all += c;
    for (char32_t c = U'一'; c < U'一' + 60; ++c)
        all += c;
    for (char32_t c = 0x1F600; c < 0x1F600 + 60; ++c)
        all += c;
    all += U"e\u0301 n\u0303 👍🏽 👩\u200D👩\u200D👧 ❤\uFE0F 🇹🇷 ";
    while (all.size() < 325)
        all += U"The quick brown fox "[all.size() % 20];
    std::string utf8;
    for (const char32_t c : all) {
        char bytes[8];
        xkb_keysym_to_utf8(xkb_utf32_to_keysym(c), bytes, sizeof bytes);
        utf8 += bytes;
    }
    return utf8;
}

TEST(LinuxEventPoster, typesAnyTextExactly) {
    Desk desk;
    for (const char* layout : {"us", "tr", "tr(f)"}) {
        SCOPED_TRACE(layout);
        desk.hands.setLayout(layout);
        EXPECT_EQ(desk.typed(mixedText()), mixedText());
        EXPECT_EQ(desk.typed("tab\tand\x01 control\x7f"), "tab\tand control");
    }
    EXPECT_EQ(desk.hands.down(), "");
}

TEST(LinuxEventPoster, typesTheTextWhateverElseIsPressed) {
    Desk desk;
    const std::string text = "Abc ğĞ Şi👍 {1}";
    const auto check = [&](const char* name, const std::function<void()>& before,
                           const std::function<void()>& after, const std::string& stillDown) {
        SCOPED_TRACE(name);
        before();
        desk.received();
        EXPECT_EQ(desk.typed(text), text);
        EXPECT_EQ(desk.hands.down(), stillDown);
        after();
        desk.settle();
        EXPECT_EQ(desk.hands.down(), "");
    };
    check(
        "caps lock", [&] { desk.tap(57); },
        [&] {
            EXPECT_TRUE(desk.hands.isCapsLocked());
            desk.tap(57);
        },
        "");
    check(
        "the user's shift", [&] { desk.hands.press(keyLeftShift); },
        [&] { desk.hands.release(keyLeftShift); }, "");
    check(
        "the user's control", [&] { desk.hands.press(keyLeftControl); },
        [&] { desk.hands.release(keyLeftControl); }, "");
    check(
        "the phone's control", [&] { desk.key(macControl, true, control); },
        [&] { desk.key(macControl, false); }, "37");
    check(
        "a key of the phone's with its control", [&] { desk.key(macA, true, command); },
        [&] { desk.key(macA, false); }, "37 38");

    desk.hands.setLayout("tr");
    desk.poster->postText(u"a\xD83D");
    desk.poster->postText(u"\xDC4D\xDC4D\xD83D");
    desk.tap(macReturn);
    desk.poster->postText(u"\xDC4Dz");
    desk.settle();
    EXPECT_EQ(desk.reader.takeText(), "a👍z") << "halves without the other one are left out";
}

// Programs that translate keys each in their own way; they write what they have into $FILE, and
// $FILE.ready when their window is there.
const std::pair<const char*, std::vector<std::string>> programs[] = {
    {"a terminal",
     {"xterm", "-u8", "-e", "sh", "-c",
      "stty raw -echo; echo > \"$FILE.ready\"; exec cat > \"$FILE\""}},
    {"GTK", {"/usr/bin/python3", "-c", R"(
import os, gi
gi.require_version("Gtk", "3.0")
from gi.repository import Gtk, GLib
name = os.environ["FILE"]
field = Gtk.TextView()
text = field.get_buffer()
text.connect("changed", lambda _: open(name, "w").write(text.get_text(*text.get_bounds(), True)))
window = Gtk.Window(default_width=400, default_height=300)
window.add(field)
window.show_all()
window.connect("map-event", lambda *_: GLib.idle_add(lambda: print("x", file=open(name + ".ready", "w"))))
Gtk.main()
)"}},
    {"Qt", {"/usr/bin/python3", "-c", R"(
import os
from PyQt6.QtCore import QTimer
from PyQt6.QtWidgets import QApplication, QPlainTextEdit
name = os.environ["FILE"]
application = QApplication(["field"])
field = QPlainTextEdit()
field.textChanged.connect(lambda: open(name, "w").write(field.toPlainText()))
field.resize(400, 300)
field.show()
QTimer.singleShot(0, lambda: print("x", file=open(name + ".ready", "w")))
application.exec()
)"}},
};

TEST(LinuxEventPoster, typesIntoRealPrograms) {
    for (const auto& [name, commandLine] : programs) {
        SCOPED_TRACE(name);
        Desk desk;
        const TemporaryFolder folder;
        const std::string file = folder / "typed";
        desk.hands.setLayout("tr");
        BackgroundProcess program({.command = commandLine,
                                   .environment = {{"DISPLAY", desk.server.display()},
                                                   {"FILE", file},
                                                   {"LC_ALL", "C.UTF-8"},
                                                   {"NO_AT_BRIDGE", "1"}},
                                   .outputFile = folder / "log"});
        ASSERT_TRUE(eventually([&] { return !fileText(file + ".ready").empty(); }))
            << fileText(folder / "log");
        desk.reader.yield();
        const std::string text = mixedText() + ".";
        desk.type(text);
        EXPECT_TRUE(eventually([&] { return fileText(file).ends_with('.'); }));
        EXPECT_EQ(fileText(file), text);
    }
}

TEST(LinuxEventPoster, leavesNothingBehind) {
    Desk desk;
    desk.hands.setLayout("tr");
    const std::string map = desk.hands.keyboardMap();
    const auto hold = [&] {
        desk.key(macA, true, shift | control);
        desk.key(macShift, true);
        desk.poster->postButton(MouseButton::left, true, {5, 5}, 1);
        desk.poster->postButton(MouseButton::right, true, {5, 5}, 1);
        desk.type("漢字👍");
    };
    hold();
    desk.settle();
    EXPECT_EQ(desk.hands.down(), "37 38 50 b1 b3");
    EXPECT_NE(desk.hands.keyboardMap(), map);
    desk.poster->releaseAll();
    desk.settle();
    EXPECT_EQ(desk.hands.down(), "");
    EXPECT_TRUE(eventually([&] { return desk.hands.keyboardMap() == map; }));

    hold();
    desk.settle();
    desk.poster.reset();
    EXPECT_EQ(desk.hands.down(), "");
    EXPECT_EQ(desk.hands.keyboardMap(), map);
}

// Another program that is told of changes of the keyboard.
class Onlooker {
public:
    explicit Onlooker(const std::string& display) : x11(display) {
        x11.reply<xcb_xkb_use_extension_reply>(xcb_xkb_use_extension(x11.get(), 1, 0), "");
        xcb_xkb_select_events(x11.get(), XCB_XKB_ID_USE_CORE_KBD, XCB_XKB_EVENT_TYPE_MAP_NOTIFY, 0,
                              XCB_XKB_EVENT_TYPE_MAP_NOTIFY, 0xFF, 0xFF, nullptr);
        sync();
    }
    // How often it was told since the last call: as the core protocol does, and by XKB of the
    // keyboard of which it was told most.
    std::string changes() {
        sync();
        int core = 0;
        std::map<int, int> byKeyboard;
        while (const auto event = x11.pollEvent()) {
            if (event->response_type == XCB_MAPPING_NOTIFY) ++core;
            if (event->response_type == x11.extension(xcb_xkb_id)->first_event)
                ++byKeyboard[reinterpret_cast<const xcb_xkb_map_notify_event_t&>(*event).deviceID];
        }
        int most = 0;
        for (const auto& [keyboard, count] : byKeyboard)
            most = std::max(most, count);
        return std::to_string(core) + ' ' + std::to_string(most);
    }
    void setKey(std::uint8_t code, xcb_keysym_t symbol) {
        xcb_change_keyboard_mapping(x11.get(), 1, code, 1, &symbol);
        sync();
    }

private:
    void sync() {
        x11.reply<xcb_get_input_focus_reply>(xcb_get_input_focus(x11.get()), "GetInputFocus");
    }
    X11Connection x11;
};

std::multiset<std::string> linesOf(const std::string& text) {
    std::multiset<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

TEST(LinuxEventPoster, changesTheKeyboardOnceForATextAndOnceToGiveItBack) {
    constexpr auto own = XHands::Keyboards::own;
    const struct {
        const char* layout;
        const char* ofTheUsersKeyboard;
        const char* changes;
    } rows[] = {
        {"us", "us", "1 1"},
        {"tr", "tr", "1 1"},
        {"us,tr", "us,tr", "1 1"},
        // A change of one keyboard's table the server tells twice to those who ask XKB.
        {"tr", "us", "1 2"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.layout) + ' ' + row.ofTheUsersKeyboard);
        Desk desk;
        desk.hands.setLayout(row.layout);
        desk.hands.setLayout(row.ofTheUsersKeyboard, own);
        if (row.layout == std::string("us,tr")) desk.hands.chooseLayout(1);
        desk.typed("a");  // from then on programs see the virtual keyboard
        const std::string map = desk.hands.keyboardMap(), ownMap = desk.hands.keyboardMap(own);
        Onlooker onlooker(desk.server.display());
        const std::string text = "漢字, αβγ, жзн and 👍👎 漢字";
        desk.poster->postText(utf16From(text));
        desk.settle();
        EXPECT_EQ(desk.reader.takeText(), text);
        EXPECT_EQ(onlooker.changes(), row.changes);
        for (const auto& [was, is] : {std::pair(map, desk.hands.keyboardMap()),
                                      std::pair(ownMap, desk.hands.keyboardMap(own))}) {
            const auto before = linesOf(was), lent = linesOf(is);
            EXPECT_EQ(lent.size(), before.size() + 9) << "one of ten has no name to show it by";
            EXPECT_TRUE(std::includes(lent.begin(), lent.end(), before.begin(), before.end()))
                << "keys with a meaning are what they were";
        }
        desk.poster.reset();
        EXPECT_EQ(onlooker.changes(), row.changes);
        EXPECT_EQ(desk.hands.keyboardMap(), map);
        EXPECT_EQ(desk.hands.keyboardMap(own), ownMap);
    }
}

TEST(LinuxEventPoster, leavesKeysAloneThatSomebodyElseHasTaken) {
    Desk desk;
    const std::string map = desk.hands.keyboardMap();
    EXPECT_EQ(desk.typed("漢字👍"), "漢字👍");
    Onlooker other(desk.server.display());
    other.setKey(8, XKB_KEY_F24);
    desk.settle();
    EXPECT_EQ(desk.typed("漢字👍ж"), "漢字👍ж");
    desk.poster.reset();
    EXPECT_NE(desk.hands.keyboardMap().find("F24"), std::string::npos);
    other.setKey(8, 0);
    EXPECT_EQ(desk.hands.keyboardMap(), map);
}

// Runs in a process of its own, which the next test kills.
TEST(LinuxEventPoster, DISABLED_holdsUntilItIsKilled) {
    FakeDefaults defaults;
    LinuxEventPoster poster(defaults, {});
    ASSERT_TRUE(eventually([&] { return poster.displayBounds({}).has_value(); }));
    poster.postText(u"漢字");
    poster.postButton(MouseButton::left, true, {7, 7}, 1);
    poster.postKey(macA, true, shift);
    eventually([] { return false; }, 60s);
}

TEST(LinuxEventPoster, putsRightWhatAKilledOneLeft) {
    Desk desk;
    const std::string map = desk.hands.keyboardMap();
    desk.poster.reset();
    BackgroundProcess other({.command = {"/proc/self/exe", "--gtest_also_run_disabled_tests",
                                         "--gtest_filter=*.DISABLED_holdsUntilItIsKilled"},
                             .environment = {{"DISPLAY", desk.server.display()}},
                             .outputFile = "/dev/null"});
    ASSERT_TRUE(eventually([&] { return desk.hands.down() == "38 50 b1"; })) << desk.hands.down();
    other.signal(SIGKILL);
    other.wait();
    // Another program's key, and the user's.
    desk.hands.post(keyA + 1, true);
    desk.hands.press(keyA + 2);
    EXPECT_EQ(desk.hands.down(), "38 39 40 50 b1");
    desk.makePoster();
    ASSERT_TRUE(desk.isConnected());
    EXPECT_EQ(desk.hands.down(), "39 40");
    EXPECT_EQ(desk.hands.keyboardMap(), map);
    desk.hands.post(keyA + 1, false);
    desk.hands.release(keyA + 2);
    desk.reader.take();
    desk.hands.post(keyA, true);
    EXPECT_TRUE(eventually([&] { return desk.reader.seenText().find("aaa") != std::string::npos; }))
        << "keys repeat";
    desk.hands.post(keyA, false);
}

TEST(LinuxEventPoster, neverMakesTheCallerWaitForAHungServer) {
    Desk desk;
    kill(desk.server.id(), SIGSTOP);
    const auto before = std::chrono::steady_clock::now();
    for (int i = 0; i < 20'000; ++i) {
        desk.poster->postMotion(Motion::moved, {double(i % 600), 5}, 1, 0);
        desk.poster->postText(u"abcdefghijklmnop");
        desk.key(macA, true, shift);
        desk.poster->pointerLocation();
        desk.poster->displayBounds({});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    kill(desk.server.id(), SIGCONT);
    EXPECT_TRUE(eventually([&] {
        desk.poster->releaseAll();
        desk.poster->postMotion(Motion::moved, {333, 333}, 0, 0);
        return desk.poster->pointerLocation() == Point{333, 333} && desk.hands.down().empty();
    })) << "and goes on, with nothing held";

    kill(desk.server.id(), SIGSTOP);
    desk.key(macA, true);
    const auto end = std::chrono::steady_clock::now();
    desk.poster.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - end, 8s);
    // One that finds it hung, too.
    desk.makePoster();
    desk.poster.reset();
    kill(desk.server.id(), SIGCONT);
}

TEST(LinuxEventPoster, findsAServerThatComesLaterOrAgain) {
    FakeDefaults defaults;
    XServer server;
    server.kill();
    LinuxEventPoster poster(defaults, server.display());
    const auto connects = [&] {
        return eventually([&] { return poster.displayBounds({}).has_value(); });
    };
    EXPECT_FALSE(poster.pointerLocation());
    poster.postKey(macA, true, shift);
    poster.releaseAll();
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again);
        server.restart();
        ASSERT_TRUE(connects());
        poster.postMotion(Motion::moved, {12, 34}, 0, 0);
        EXPECT_TRUE(eventually([&] { return poster.pointerLocation() == Point{12, 34}; }));
        poster.postKey(macA, true, shift);
        XHands hands(server.display());
        EXPECT_TRUE(eventually([&] { return hands.down() == "38 50"; }));
        server.kill();
        EXPECT_TRUE(eventually([&] { return !poster.displayBounds({}); }));
    }
}

TEST(LinuxEventPoster, knowsThePointerAndTheMonitors) {
    Desk desk;
    XDesk hand(desk.server.display());
    for (const int x : {100, 200, 300}) {
        hand.movePointer(x, 50);
        EXPECT_TRUE(eventually([&] {
            return desk.poster->pointerLocation() == Point{double(x), 50};
        }));
    }
    hand.warpPointer(7, 8);
    EXPECT_TRUE(eventually([&] {
        return desk.poster->pointerLocation() == Point{7, 8};
    })) << "asking is enough";

    hand.setMonitor("left", {0, 0, 320, 480});
    hand.setMonitor("right", {320, 0, 320, 480}, true);
    const X11Connection x11(desk.server.display());
    for (const auto& monitor : readMonitors(x11)) {
        const EventPoster::Area want{{double(monitor.area.x), 0}, 320, 480};
        EXPECT_TRUE(eventually([&] { return desk.poster->displayBounds(monitor.id) == want; }));
        if (monitor.isMain) {
            EXPECT_EQ(desk.poster->displayBounds({}), want);
        }
    }
    EXPECT_FALSE(desk.poster->displayBounds(12'345));
}

TEST(LinuxEventPoster, clicksTheFirstButtonOfALeftHandedMouseToo) {
    Desk desk;
    desk.hands.setPointerMap({3, 2, 1});
    desk.received();
    desk.poster->postButton(MouseButton::left, true, {30, 40}, 1);
    desk.poster->postButton(MouseButton::left, false, {30, 40}, 1);
    EXPECT_EQ(desk.received(), "m@30,40 +b1@30,40 -b1@30,40");
}

}  // namespace
}  // namespace orvel
