#include "OrvelAgent/Platform/Linux/X11Framebuffer.h"

#include <gtest/gtest.h>

#include <random>

#include "OrvelAgent/Platform/Linux/PictureForTests.h"
#include "Tests/Support/XDesk.h"
#include "Tests/Support/XServer.h"

namespace orvel {
namespace {

using Transfer = X11Framebuffer::Transfer;

constexpr std::uint32_t colourBits = 0xFFFFFF;

testing::AssertionResult holds(const X11Framebuffer& framebuffer, const Canvas& canvas) {
    const auto pixels = framebuffer.pixels();
    for (int y = 0; y < canvas.height; ++y) {
        const auto* row =
            reinterpret_cast<const std::uint32_t*>(pixels.data + std::ptrdiff_t{y} * pixels.stride);
        for (int x = 0; x < canvas.width; ++x) {
            if ((row[x] & colourBits) == canvas.at(x, y)) continue;
            return testing::AssertionFailure()
                   << std::hex << row[x] << " instead of " << canvas.at(x, y) << std::dec << " at "
                   << x << "," << y;
        }
    }
    return testing::AssertionSuccess();
}

testing::AssertionResult cover(const std::vector<Rect>& parts, const Rect& wanted) {
    Canvas canvas(640, 480);
    for (const Rect& part : parts)
        canvas.fill(part, 1);
    Canvas missing(640, 480);
    missing.fill(wanted, 1);
    for (std::size_t i = 0; i < missing.colours.size(); ++i) {
        if (missing.colours[i] && !canvas.colours[i])
            return testing::AssertionFailure() << "pixel " << i << " is missing";
    }
    return testing::AssertionSuccess();
}

struct Row {
    const char* name;
    Transfer best, want;
    std::vector<std::string> serverArguments = {};
};

const Row rows[] = {
    {"shared pixmap", Transfer::sharedPixmap, Transfer::sharedPixmap},
    {"shared bands", Transfer::sharedImage, Transfer::sharedImage},
    {"through the socket", Transfer::socket, Transfer::socket},
    {"no shared memory", Transfer::sharedPixmap, Transfer::socket, {"-extension", "MIT-SHM"}},
};

TEST(X11Framebuffer, followsWhatIsDrawnByEachWayOfTransfer) {
    constexpr int seed = 3;
    const Rect area{100, 60, 331, 255};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XServer server({.arguments = row.serverArguments});
        XDesk desk(server.display());
        const X11Connection x11(server.display());
        X11Framebuffer framebuffer(x11, area, row.best);
        EXPECT_EQ(framebuffer.transfer(), row.want);

        Canvas canvas(640, 480);
        desk.fill({0, 0, 640, 480}, 0x204060);
        canvas.fill({0, 0, 640, 480}, 0x204060);
        EXPECT_EQ(framebuffer.update(), (std::vector<Rect>{{0, 0, area.width, area.height}}));
        ASSERT_TRUE(holds(framebuffer, canvas.part(area)));

        std::mt19937 random(seed);
        for (int round = 0; round < 60; ++round) {
            Canvas changed(640, 480);
            for (int i = 0; i <= round; ++i) {
                Rect part = canvas.randomPart(random);
                if (round > 20) part.width = part.height = 5;
                const auto colour = static_cast<std::uint32_t>(random()) & colourBits;
                desk.fill(part, colour);
                canvas.fill(part, colour);
            }
            framebuffer.update();
            ASSERT_TRUE(holds(framebuffer, canvas.part(area))) << "round " << round;
        }
        EXPECT_TRUE(framebuffer.update().empty());

        // Windows above the root window are part of it, and where they were, too.
        const auto window = desk.openWindow({150, 100, 40, 30}, 0xFF8000);
        EXPECT_TRUE(cover(framebuffer.update(), {50, 40, 40, 30}));
        Canvas withWindow = canvas;
        withWindow.fill({150, 100, 40, 30}, 0xFF8000);
        EXPECT_TRUE(holds(framebuffer, withWindow.part(area)));
        desk.closeWindow(window);
        desk.fill({150, 100, 40, 30}, 0x112233);  // the root window has no colour of its own
        canvas.fill({150, 100, 40, 30}, 0x112233);
        EXPECT_TRUE(cover(framebuffer.update(), {50, 40, 40, 30}));
        EXPECT_TRUE(holds(framebuffer, canvas.part(area)));
    }
}

TEST(X11Framebuffer, tellsOfDamageOnceAndOfNothingOutsideOfItsArea) {
    const XServer server;
    XDesk desk(server.display());
    const X11Connection x11(server.display());
    X11Framebuffer framebuffer(x11, {100, 60, 200, 200});
    framebuffer.update();
    const auto damageEvents = [&] {
        x11.rootArea();  // what was sent before its answer has come
        int count = 0;
        while (const auto event = x11.pollEvent())
            count += framebuffer.isDamage(*event);
        return count;
    };
    damageEvents();
    desk.fill({110, 70, 10, 10}, 0xFF0000);
    desk.fill({150, 70, 10, 10}, 0x00FF00);
    EXPECT_EQ(damageEvents(), 1);
    EXPECT_EQ(framebuffer.update().size(), 2u);
    desk.fill({0, 0, 50, 50}, 0xFF0000);
    desk.fill({95, 60, 10, 5}, 0x00FF00);
    EXPECT_EQ(damageEvents(), 1);
    EXPECT_EQ(framebuffer.update(), (std::vector<Rect>{{0, 0, 5, 5}}));
}

TEST(X11Framebuffer, aScreenThatShrankIsRefusedOrLeavesTheOldPixels) {
    const XServer server;
    XDesk desk(server.display());
    const X11Connection x11(server.display());
    for (const auto transfer : {Transfer::sharedPixmap, Transfer::sharedImage, Transfer::socket}) {
        X11Framebuffer framebuffer(x11, {0, 0, 640, 480}, transfer);
        framebuffer.update();
        desk.resize(320, 240);
        desk.fill({0, 0, 320, 240}, 0x123456);
        if (transfer == Transfer::sharedPixmap) {
            framebuffer.update();
            EXPECT_EQ(*framebuffer.row(319, 239) & colourBits, 0x123456u);
        } else {
            X11Framebuffer whole(x11, {0, 0, 640, 480}, transfer);
            EXPECT_THROW(whole.update(), X11Refusal);
        }
        desk.resize(640, 480);
    }
    EXPECT_TRUE(x11.isAlive());
}

TEST(X11Framebuffer, saysWhichExtensionIsMissing) {
    const struct {
        const char* extension;
        const char* want;
    } missing[] = {{"DAMAGE", "the X server lacks the DAMAGE extension"}};
    for (const auto& each : missing) {
        const XServer server({.arguments = {"-extension", each.extension}});
        const X11Connection x11(server.display());
        try {
            X11Framebuffer framebuffer(x11, {0, 0, 100, 100});
            ADD_FAILURE() << each.extension;
        } catch (const X11Failure& failure) {
            EXPECT_STREQ(failure.what(), each.want);
        }
    }
}

TEST(X11Framebuffer, refusesAScreenOfOtherPixels) {
    const XServer server({.arguments = {"-screen", "0", "640x480x16"}});
    const X11Connection x11(server.display());
    EXPECT_THROW(X11Framebuffer(x11, {0, 0, 100, 100}), X11Failure);
}

}  // namespace
}  // namespace orvel
