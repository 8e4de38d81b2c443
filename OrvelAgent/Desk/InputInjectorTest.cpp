#include "OrvelAgent/Desk/InputInjector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "OrvelAgent/Platform/Fake/FakeEventPoster.h"
#include "OrvelKit/Wire/KeyCode.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

using Events = std::vector<std::string>;
using Outcome = InputInjector::Outcome;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

class InputInjectorTest : public testing::Test {
protected:
    // Runs `action` on the queue; what it posted.
    template <class Action>
    Events after(Action action) {
        queue.post([&] {
            queue.assertCurrent();
            action();
        });
        time.runPending();
        return poster.takeEvents();
    }
    Events handle(std::vector<Control> controls) {
        return after([&] {
            for (const auto& control : controls)
                EXPECT_EQ(injector->handle(control), Outcome::done);
        });
    }
    Outcome outcomeOf(const Control& control) {
        Outcome outcome{};
        after([&] { outcome = injector->handle(control); });
        return outcome;
    }
    void restart() {
        poster = FakeEventPoster();
        injector.emplace(queue, poster);
    }

    VirtualTime time;
    SerialQueue queue{"orvel.agent", time};
    FakeEventPoster poster;
    std::optional<InputInjector> injector{std::in_place, queue, poster};
};

Control move(double dx, double dy) {
    return {Control::Move{dx, dy}};
}
Control moveTo(double x, double y) {
    return {Control::MoveTo{x, y}};
}
Control button(MouseButton button, bool down, std::int64_t clicks = 1) {
    return {Control::Button{button, down, clicks}};
}
Control scroll(double dx, double dy, ScrollPhase phase = ScrollPhase::changed) {
    return {Control::Scroll{dx, dy, phase}};
}
Control key(std::uint16_t code, bool down, std::uint8_t modifiers = 0) {
    return {Control::Key{code, down, {modifiers}}};
}
Control text(std::string text) {
    return {Control::Text{std::move(text)}};
}
constexpr auto left = MouseButton::left, right = MouseButton::right;

TEST_F(InputInjectorTest, postsWhatEachSequenceAsksFor) {
    const struct {
        const char* name;
        std::vector<Control> controls;
        Events want;
    } rows[] = {
        {"the middle", {moveTo(0.5, 0.5)}, {"moved 640,360 by 640,360"}},
        {"the origin", {moveTo(0, 0)}, {"moved 0,0 by 0,0"}},
        {"the far corner stays inside", {moveTo(1, 1)}, {"moved 1279,719 by 1280,720"}},
        {"beyond the display is its edge", {moveTo(-1, 2)}, {"moved 0,719 by -1280,1440"}},
        {"absolute moves have deltas from where the pointer was",
         {moveTo(0.5, 0.5), moveTo(0.25, 0.75)},
         {"moved 640,360 by 640,360", "moved 320,540 by -320,180"}},
        {"relative moves add up",
         {move(10, 20), move(-3, 5)},
         {"moved 10,20 by 10,20", "moved 7,25 by -3,5"}},
        {"positions keep their fractions, deltas are rounded, halves away from zero",
         {move(0.4, 0.5), move(0.4, -0.25), move(1.5, 2.5), move(-2.5, -2.7)},
         {"moved 0.4,0.5 by 0,1", "moved 0.8,0.25 by 0,0", "moved 2.3,2.75 by 2,3",
          "moved 0,0.05 by -3,-3"}},
        {"at the edge the pointer stops and the deltas go on",
         {moveTo(1, 0), move(5, -5), move(-1, 0)},
         {"moved 1279,0 by 1280,0", "moved 1279,0 by 5,-5", "moved 1278,0 by -1,0"}},
        {"a press and a release",
         {button(left, true), button(left, false)},
         {"left down 0,0 x1", "left up 0,0 x1"}},
        {"the phone counts clicks; less than one is one",
         {button(right, true, 2), button(right, false, 0), button(left, true, -7)},
         {"right down 0,0 x2", "right up 0,0 x1", "left down 0,0 x1"}},
        {"moves with a button held are drags",
         {button(left, true), move(4, 0), button(left, false), move(1, 0)},
         {"left down 0,0 x1", "leftDragged 4,0 by 4,0", "left up 4,0 x1", "moved 5,0 by 1,0"}},
        {"the right button drags too, the left comes first",
         {button(right, true), moveTo(0.5, 0), button(left, true), move(1, 0), button(left, false),
          move(1, 0), button(right, false), move(1, 0)},
         {"right down 0,0 x1", "rightDragged 640,0 by 640,0", "left down 640,0 x1",
          "leftDragged 641,0 by 1,0", "left up 641,0 x1", "rightDragged 642,0 by 1,0",
          "right up 642,0 x1", "moved 643,0 by 1,0"}},
        {"fractions of scrolls are carried",
         {scroll(0, 0.6), scroll(0, 0.6), scroll(0, 0.8)},
         {"scroll 0,0 changed", "scroll 0,1 changed", "scroll 0,1 changed"}},
        {"carries go towards zero, each axis for itself",
         {scroll(-1.5, 2.75), scroll(-0.5, -1), scroll(0.25, 0)},
         {"scroll -1,2 changed", "scroll -1,0 changed", "scroll 0,0 changed"}},
        {"each phase by its name",
         {scroll(0, 3, ScrollPhase::began), scroll(0, -3), scroll(0, 0, ScrollPhase::ended),
          scroll(0, 9, ScrollPhase::momentum), scroll(0, 0, ScrollPhase::momentumEnded)},
         {"scroll 0,3 began", "scroll 0,-3 changed", "scroll 0,0 ended", "scroll 0,9 momentum",
          "scroll 0,0 momentumEnded"}},
        {"the longest scroll",
         {scroll(2147483647, -2147483648.0)},
         {"scroll 2147483647,-2147483648 changed"}},
        {"a key and its flags",
         {key(0, true, 0x09), key(0, false)},
         {"key 0 down 0x120000", "key 0 up 0x0"}},
        {"every modifier, and bits without meaning", {key(7, true, 0xFF)}, {"key 7 down 0x9e0000"}},
        {"each modifier alone",
         {key(8, true, 1), key(8, true, 2), key(8, true, 4), key(8, true, 8), key(8, true, 16)},
         {"key 8 down 0x20000", "key 8 down 0x40000", "key 8 down 0x80000", "key 8 down 0x100000",
          "key 8 down 0x800000"}},
        {"arrows",
         {key(123, true), key(126, false, 1)},
         {"key 123 down 0xa00000", "key 126 up 0xa20000"}},
        {"navigation keys",
         {key(115, true), key(116, true), key(117, true), key(119, true), key(121, true)},
         {"key 115 down 0x800000", "key 116 down 0x800000", "key 117 down 0x800000",
          "key 119 down 0x800000", "key 121 down 0x800000"}},
        {"function keys, with the function modifier as without it",
         {key(122, true), key(111, true, 16), key(110, true)},
         {"key 122 down 0x800000", "key 111 down 0x800000", "key 110 down 0x0"}},
        {"codes that no keyboard has", {key(65535, true)}, {"key 65535 down 0x0"}},
        {"no text", {text("")}, {}},
        {"two lines",
         {text("ab\ncd")},
         {"text 2 0061 0062", "key 36 down", "key 36 up", "text 2 0063 0064"}},
        {"empty lines are Returns alone",
         {text("\n\na\n")},
         {"key 36 down", "key 36 up", "key 36 down", "key 36 up", "text 1 0061", "key 36 down",
          "key 36 up"}},
        {"a carriage return is no line feed", {text("a\r")}, {"text 2 0061 000d"}},
        {"a pair across the cut",
         {text("0123456789abcde👍z")},
         {"text 16 0030 0031 0032 0033 0034 0035 0036 0037 0038 0039 0061 0062 0063 0064 0065 d83d",
          "text 2 dc4d 007a"}},
        {"other controls are ignored",
         {{Control::Pong{1}}, {Control::TextFocus{true}}, {Control::Audio{true}}},
         {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        restart();
        EXPECT_EQ(handle(row.controls), row.want);
    }
}

TEST_F(InputInjectorTest, everyFunctionKeyCarriesItsFlag) {
    for (const auto code : KeyCode::functionKeys) {
        EXPECT_THAT(handle({key(code, true)}),
                    ElementsAre("key " + std::to_string(code) + " down 0x800000"));
    }
}

TEST_F(InputInjectorTest, aLongLineGoesOutInChunksOfSixteen) {
    std::vector<std::string> lengths;
    for (const auto& event : handle({text(std::string(40, 'x'))}))
        lengths.push_back(event.substr(0, event.find(' ', 5)));
    EXPECT_THAT(lengths, ElementsAre("text 16", "text 16", "text 8"));
}

TEST_F(InputInjectorTest, afterAPauseTheRealPointerCounts) {
    handle({moveTo(0.5, 0.5)});
    poster.pointer = {{100, 200}};
    time.advance(400ms);
    EXPECT_THAT(handle({move(1, 1)}), ElementsAre("moved 641,361 by 1,1"));
    poster.pointer = {{100, 200}};
    time.advance(500ms);
    EXPECT_THAT(handle({move(1, 1)}), ElementsAre("moved 642,362 by 1,1"));
    poster.pointer = {{100, 200}};
    time.advance(501ms);
    EXPECT_THAT(handle({move(1, 1)}), ElementsAre("moved 101,201 by 1,1"));
}

TEST_F(InputInjectorTest, aButtonLooksForThePointerAndDoesNotCountAsAMove) {
    handle({moveTo(0.5, 0.5)});
    time.advance(600ms);
    poster.pointer = {{30, 40}};
    EXPECT_THAT(handle({button(left, true)}), ElementsAre("left down 30,40 x1"));
    poster.pointer = {{31, 41}};
    EXPECT_THAT(handle({button(left, false)}), ElementsAre("left up 31,41 x1"));
}

TEST_F(InputInjectorTest, anAbsoluteMoveDoesNotLookForThePointer) {
    poster.pointer = {{100, 200}};
    EXPECT_THAT(handle({moveTo(0.5, 0)}), ElementsAre("moved 640,0 by 640,0"));
}

TEST_F(InputInjectorTest, anUnknownPointerIsWhereItWas) {
    handle({moveTo(0.5, 0.5)});
    time.advance(1h);
    poster.pointer.reset();
    EXPECT_THAT(handle({move(1, 0)}), ElementsAre("moved 641,360 by 1,0"));
}

TEST_F(InputInjectorTest, theChosenDisplayKeepsThePointer) {
    poster.displays = {{1, {{0, 0}, 1280, 720}}, {7, {{-1920, 100}, 1920, 1080}}};
    after([&] { injector->setDisplay(7); });
    EXPECT_THAT(handle({moveTo(1, 1), moveTo(0, 0.5), move(-5, 3)}),
                ElementsAre("moved -1,1179 by 0,1180", "moved -1920,640 by -1919,-539",
                            "moved -1920,643 by -5,3"));
    // Where the user has left it is another display: a click goes there, a move comes back.
    time.advance(1s);
    poster.pointer = {{600, 50}};
    EXPECT_THAT(handle({button(left, true), button(left, false), move(1, 1)}),
                ElementsAre("left down 600,50 x1", "left up 600,50 x1", "moved -1,100 by 1,1"));
}

TEST_F(InputInjectorTest, theMainDisplayCountsUntilOneIsChosen) {
    poster.displays = {{1, {{0, 0}, 1280, 720}}, {2, {{1280, 0}, 800, 600}}};
    poster.mainDisplay = 2;
    EXPECT_THAT(handle({moveTo(0, 0)}), ElementsAre("moved 1280,0 by 1280,0"));
}

TEST_F(InputInjectorTest, movesOnADisplayThatIsGoneAreSkipped) {
    after([&] { injector->setDisplay(9); });
    EXPECT_THAT(handle({moveTo(0.5, 0.5), move(3, 3)}), IsEmpty());
    EXPECT_THAT(handle({button(left, true)}), ElementsAre("left down 0,0 x1"));
    EXPECT_EQ(outcomeOf(moveTo(nan, 0)), Outcome::refused);
}

TEST_F(InputInjectorTest, refusesNumbersThatNoEventCarriesAndIsAsItWas) {
    const struct {
        const char* name;
        Control control;
    } rows[] = {
        {"no number", move(nan, 0)},
        {"no number down", move(0, nan)},
        {"no end", move(infinity, 0)},
        {"no end up", move(0, -infinity)},
        {"one beyond 64 bits", move(0x1p63, 0)},
        {"the largest double", move(0, -1.7976931348623157e308)},
        {"absolute: no number", moveTo(nan, 0.5)},
        {"absolute: no end", moveTo(0.5, infinity)},
        {"absolute: the product overflows", moveTo(1.7976931348623157e308, 0)},
        {"absolute: beyond 64 bits", moveTo(0, 1e300)},
        {"scroll: no number", scroll(nan, 0)},
        {"scroll: no end", scroll(0, -infinity)},
        {"scroll: one beyond 32 bits", scroll(2147483648.0, 0)},
        {"scroll: one below 32 bits", scroll(0, -2147483649.5)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        restart();
        handle({move(5, 6), scroll(0.5, 0.5)});
        EXPECT_EQ(outcomeOf(row.control), Outcome::refused);
        EXPECT_THAT(poster.takeEvents(), IsEmpty());
        EXPECT_THAT(handle({move(0, 0), scroll(0.5, 0.5)}),
                    ElementsAre("moved 5,6 by 0,0", "scroll 1,1 changed"));
    }
}

TEST_F(InputInjectorTest, theLongestMoveIsClampedAndNotRefused) {
    EXPECT_THAT(handle({move(-0x1p63, 0x1.fffffffffffffp62)}),
                ElementsAre("moved 0,719 by -9223372036854775808,9223372036854774784"));
}

TEST_F(InputInjectorTest, aCarryDoesNotLiftAScrollOverTheLimit) {
    handle({scroll(0.75, 0)});
    EXPECT_EQ(outcomeOf(scroll(2147483647.5, 0)), Outcome::refused);
}

TEST_F(InputInjectorTest, lettingGoOfButtonsReleasesThoseHeldOnce) {
    EXPECT_THAT(after([&] { injector->releaseButtons(); }), IsEmpty());
    handle({button(right, true, 2), button(left, true, 3), moveTo(0.5, 0.5)});
    EXPECT_THAT(after([&] { injector->releaseButtons(); }),
                ElementsAre("left up 640,360 x1", "right up 640,360 x1"));
    EXPECT_THAT(after([&] { injector->releaseButtons(); }), IsEmpty());
    EXPECT_THAT(handle({move(1, 0)}), ElementsAre("moved 641,360 by 1,0"));
}

TEST_F(InputInjectorTest, lettingGoOfAllAsksThePosterForTheKeys) {
    handle({button(left, true), key(56, true, 1)});
    EXPECT_THAT(after([&] { injector->releaseAll(); }),
                ElementsAre("left up 0,0 x1", "release all"));
}

}  // namespace
}  // namespace orvel
