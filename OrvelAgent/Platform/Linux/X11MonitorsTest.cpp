#include "OrvelAgent/Platform/Linux/X11Monitors.h"

#include <gtest/gtest.h>

#include <set>

#include "Tests/Support/XDesk.h"
#include "Tests/Support/XServer.h"

namespace orvel {
namespace {

// Identification data with one text of the given kind as second descriptor.
Bytes edidWith(std::uint8_t kind, const std::string& text) {
    Bytes edid(128, 0);
    edid[54] = 0x02;  // the first descriptor is a mode
    edid[72 + 3] = kind;
    for (std::size_t i = 0; i < 13; ++i)
        edid[72 + 5 + i] = static_cast<std::uint8_t>(i < text.size() ? text[i] : ' ');
    return edid;
}

TEST(X11Monitors, theModelStandsInTheIdentificationData) {
    const struct {
        const char* name;
        Bytes edid;
        const char* want;
    } rows[] = {
        {"a name ends with a new line", edidWith(0xFC, "BIG 27Q\n"), "BIG 27Q"},
        {"or fills its field", edidWith(0xFC, "ABCDEFGHIJKLM"), "ABCDEFGHIJKLM"},
        {"spaces at its end go", edidWith(0xFC, "BIG"), "BIG"},
        {"what is no letter is shown so", edidWith(0xFC, "A\x01\xFF\n"), "A??"},
        {"another text is not it", edidWith(0xFE, "serial\n"), ""},
        {"nothing", {}, ""},
        {"cut off", Bytes(127, 0xFC), ""},
        {"spaces only", edidWith(0xFC, ""), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(modelName(row.edid), row.want);
    }
}

TEST(X11Monitors, anIdComesFromTheConnectorAloneAndIsNeverShared) {
    std::vector<X11Monitor> monitors{{0, "HDMI-1", "Model", {0, 0, 8, 8}, true},
                                     {0, "DP-1", "Model", {8, 0, 8, 8}, false},
                                     {0, "DP-1", "Other", {16, 0, 8, 8}, false}};
    std::vector<X11Monitor> alone{monitors[1]};
    identify(monitors);
    identify(alone);
    EXPECT_EQ(alone[0].id, monitors[1].id);
    EXPECT_EQ(alone[0].id, 0x1DBAD777u);
    EXPECT_EQ((std::set{monitors[0].id, monitors[1].id, monitors[2].id, 0u}).size(), 4u);
    EXPECT_EQ(monitors[0].name, "Model (HDMI-1)");
    EXPECT_EQ(monitors[1].name, "Model (DP-1)");
    EXPECT_EQ(monitors[2].name, "Other");
    EXPECT_EQ(alone[0].name, "Model");
}

std::vector<X11Monitor> read(const XServer& server) {
    return readMonitors(X11Connection(server.display()));
}

TEST(X11Monitors, areThoseOfTheServerWhereverTheyLie) {
    const XServer server;
    XDesk desk(server.display());
    const auto natural = read(server);
    ASSERT_EQ(natural.size(), 1u);
    EXPECT_EQ(natural[0].name, "screen");
    EXPECT_EQ(natural[0].area, (Rect{0, 0, 640, 480}));
    EXPECT_TRUE(natural[0].isMain);

    desk.setMonitor("LEFT", {-40, -30, 240, 230});
    desk.setMonitor("RIGHT", {200, 100, 440, 380}, true);
    desk.setMonitor("BEYOND", {640, 0, 100, 100});
    const auto monitors = read(server);
    ASSERT_EQ(monitors.size(), 2u) << "what lies outside of the screen shows nothing";
    EXPECT_EQ(monitors[0].connector, "RIGHT");
    EXPECT_EQ(monitors[0].area, (Rect{200, 100, 440, 380}));
    EXPECT_TRUE(monitors[0].isMain);
    EXPECT_EQ(monitors[1].connector, "LEFT");
    EXPECT_EQ(monitors[1].area, (Rect{0, 0, 200, 200}));
    EXPECT_FALSE(monitors[1].isMain);

    desk.removeMonitor("RIGHT");
    const auto left = read(server);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].id, monitors[1].id);
    EXPECT_TRUE(left[0].isMain) << "one always is";
}

TEST(X11Monitors, withoutRandrTheWholeScreenIsOne) {
    const XServer server({.width = 300, .height = 200, .arguments = {"-extension", "RANDR"}});
    const auto monitors = read(server);
    ASSERT_EQ(monitors.size(), 1u);
    EXPECT_EQ(monitors[0].area, (Rect{0, 0, 300, 200}));
    EXPECT_EQ(monitors[0].name, "");
    EXPECT_NE(monitors[0].id, 0u);
    EXPECT_TRUE(monitors[0].isMain);
}

}  // namespace
}  // namespace orvel
