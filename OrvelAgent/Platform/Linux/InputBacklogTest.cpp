#include "OrvelAgent/Platform/Linux/InputBacklog.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Platform/Linux/WheelSteps.h"

namespace orvel {
namespace {

InputEvent key(std::uint16_t code) {
    return {InputEvent::Key{code, true, std::nullopt, false}};
}
InputEvent motion(double x) {
    return {InputEvent::Motion{{x, 0}}};
}
InputEvent text(std::size_t units) {
    return {InputEvent::Text{std::u16string(units, u'a')}};
}

TEST(InputBacklog, keepsTheOrderAndSaysWhenToWake) {
    InputBacklog backlog;
    EXPECT_TRUE(backlog.add(key(1)));
    EXPECT_FALSE(backlog.add(motion(1)));
    EXPECT_FALSE(backlog.add(motion(2)));
    EXPECT_FALSE(backlog.add(text(16)));
    EXPECT_FALSE(backlog.add(text(4)));
    EXPECT_EQ(backlog.take(), (std::deque{key(1), motion(1), motion(2), text(20)}));
    EXPECT_TRUE(backlog.take().empty());
    EXPECT_TRUE(backlog.add(key(2)));
}

TEST(InputBacklog, mergesWhatNeedNotBeSeenOneByOneWhenMuchWaits) {
    InputBacklog backlog;
    for (std::size_t i = 0; i < InputBacklog::mergeFrom; ++i)
        backlog.add(key(1));
    for (int i = 0; i < 100'000; ++i)
        backlog.add(motion(i));
    for (int i = 0; i < 3; ++i)
        backlog.add({InputEvent::Scroll{1, 2'000'000'000, ScrollPhase::changed}});
    backlog.add({InputEvent::Scroll{1, 1, ScrollPhase::ended}});
    const auto taken = backlog.take();
    ASSERT_EQ(taken.size(), InputBacklog::mergeFrom + 3);
    EXPECT_EQ(taken[taken.size() - 3], motion(99'999));
    EXPECT_EQ(taken[taken.size() - 2],
              (InputEvent{InputEvent::Scroll{3, 2'147'483'647, ScrollPhase::changed}}));
}

TEST(InputBacklog, isBoundedAndThenLetsGoOfEverything) {
    const struct {
        const char* name;
        InputEvent event;
        std::size_t fits;
    } rows[] = {{"keys", key(1), InputBacklog::eventLimit}, {"text", text(1'024), 1 /* merged */}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        InputBacklog backlog;
        for (std::size_t i = 0; i < 2 * InputBacklog::eventLimit; ++i)
            backlog.add(row.event);
        const auto taken = backlog.take();
        ASSERT_EQ(taken.size(), row.fits + 1);
        EXPECT_EQ(taken.back(), InputEvent{InputEvent::ReleaseAll{}});
        if (const auto* all = std::get_if<InputEvent::Text>(&taken.front().what)) {
            EXPECT_EQ(all->units.size(), InputBacklog::textLimit);
        }
        EXPECT_TRUE(backlog.add(key(2))) << "goes on";
    }
}

TEST(WheelSteps, carriesTheRestOnEachAxisWithinAGesture) {
    using Clicks = WheelSteps::Clicks;
    using enum ScrollPhase;
    const struct {
        std::int32_t dx, dy;
        ScrollPhase phase;
        Clicks want;
    } rows[] = {
        {0, 10, began, {0, 0}},      {0, 10, changed, {0, 1}},
        {-14, 10, changed, {0, 1}},  {-1, 0, changed, {-1, 0}},
        {0, -45, momentum, {0, -3}}, {0, 14, momentumEnded, {0, 0}},
        {0, 14, began, {0, 0}},      {2'147'483'647, 1, changed, {200, 1}},
    };
    WheelSteps wheel;
    for (const auto& row : rows)
        EXPECT_EQ(wheel.add(row.dx, row.dy, row.phase), row.want) << row.dx << ' ' << row.dy;
}

}  // namespace
}  // namespace orvel
