#include "OrvelAgent/Platform/Linux/X11Permissions.h"

#include <gtest/gtest.h>

#include "Tests/Support/XServer.h"

namespace orvel {
namespace {

TEST(X11Permissions, areWhatTheServerCanDo) {
    const struct {
        const char* name;
        std::vector<std::string> serverArguments;
        bool screenRecording, accessibility;
    } rows[] = {
        {"an ordinary server", {}, true, true},
        {"no DAMAGE", {"-extension", "DAMAGE"}, false, true},
        {"no XTEST", {"-extension", "XTEST"}, true, false},
        {"a screen of two bytes a pixel", {"-screen", "0", "640x480x16"}, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XServer server({.arguments = row.serverArguments});
        X11Permissions permissions(server.display());
        EXPECT_EQ(permissions.screenRecording(), row.screenRecording);
        EXPECT_EQ(permissions.accessibility(), row.accessibility);
    }
}

TEST(X11Permissions, endWithTheServerAndComeBackWithIt) {
    XServer server;
    X11Permissions permissions(server.display());
    EXPECT_TRUE(permissions.screenRecording());
    server.kill();
    EXPECT_FALSE(permissions.screenRecording());
    EXPECT_FALSE(permissions.accessibility());
    server.restart();
    EXPECT_TRUE(permissions.screenRecording());
    EXPECT_TRUE(permissions.accessibility());
}

TEST(X11Permissions, withoutAServerNothingIsGrantedAndThereIsNoPageForIt) {
    X11Permissions permissions("no-display");
    EXPECT_FALSE(permissions.screenRecording());
    EXPECT_FALSE(permissions.accessibility());
    permissions.requestScreenRecording();
    EXPECT_FALSE(permissions.openScreenRecordingSettings());
    EXPECT_FALSE(permissions.openAccessibilitySettings());
}

}  // namespace
}  // namespace orvel
