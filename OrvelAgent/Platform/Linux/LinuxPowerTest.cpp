#include "OrvelAgent/Platform/Linux/LinuxPower.h"

#include <gtest/gtest.h>
#include <xcb/screensaver.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "Tests/Support/BusService.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/XServer.h"

namespace orvel {
namespace {

constexpr const char* reason = "Orvel: telefondan erişilebilir kal";
constexpr auto recheck = std::chrono::milliseconds(50);

// A login manager, a session bus that services join in each test, and no display.
struct LinuxPowerTest : testing::Test {
    PrivateBus system, session;
    ScopedEnvironment systemAddress{"DBUS_SYSTEM_BUS_ADDRESS", system.address()};
    ScopedEnvironment sessionAddress{"DBUS_SESSION_BUS_ADDRESS", session.address()};
    ScopedEnvironment noDisplay{"DISPLAY", std::nullopt};

    std::unique_ptr<BusService> login = startLogin();

    std::unique_ptr<BusService> startLogin() {
        return std::make_unique<BusService>(system, "logind", "org.freedesktop.login1");
    }
    std::string loginInhibitors() {
        return system
            .call("org.freedesktop.login1", "/org/freedesktop/login1",
                  "org.freedesktop.login1.Manager.ListInhibitors")
            .value_or("");
    }
    bool loginHolds() { return loginInhibitors().find(reason) != std::string::npos; }
};

TEST_F(LinuxPowerTest, theLoginManagerHoldsAnAssertionUntilItIsReleased) {
    LinuxPower power;
    const auto first = power.preventIdleSleep(reason);
    EXPECT_NE(first, 0u);
    ASSERT_TRUE(eventually([&] { return loginHolds(); }));
    const auto listed = loginInhibitors();
    EXPECT_NE(listed.find("idle"), std::string::npos) << listed;
    EXPECT_NE(listed.find("block"), std::string::npos) << listed;
    EXPECT_EQ(listed.find("sleep"), std::string::npos) << "a user may still send it to sleep";
    power.release(first + 1);
    power.release(first);
    EXPECT_TRUE(eventually([&] { return !loginHolds(); }));
    EXPECT_NE(power.preventIdleSleep(reason), first);
    EXPECT_TRUE(eventually([&] { return loginHolds(); }));
}

TEST_F(LinuxPowerTest, theEndOfTheObjectReleasesEverything) {
    {
        LinuxPower power;
        power.preventIdleSleep(reason);
        ASSERT_TRUE(eventually([&] { return loginHolds(); }));
    }
    EXPECT_TRUE(eventually([&] { return !loginHolds(); }));
}

TEST_F(LinuxPowerTest, aLoginManagerThatComesLaterOrAgainIsAsked) {
    login.reset();
    LinuxPower power(recheck);
    power.preventIdleSleep(reason);
    for (int round = 0; round < 2; ++round) {
        login = startLogin();
        EXPECT_TRUE(eventually([&] { return loginHolds(); }));
        login.reset();
    }
}

TEST_F(LinuxPowerTest, aBusThatHangsHoldsNobody) {
    LinuxPower power;
    system.process().signal(SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    const auto assertion = power.preventIdleSleep(reason);
    power.declareUserActivity(reason);
    power.release(assertion);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
    system.process().signal(SIGCONT);
}

struct KeeperRow {
    const char* name;
    const char *service, *path, *interface;
    const char *signature, *answers, *code;
    const char* inhibited;    // how the call looks in the log
    const char* uninhibited;  // and its end; null: not on this object
};

const KeeperRow keeperRows[] = {
    {"session manager", "org.gnome.SessionManager", "/org/gnome/SessionManager",
     "org.gnome.SessionManager", "susu", "u", "ret = 77",
     "Inhibit \"Orvel Agent\" 0 \"Orvel: telefondan erişilebilir kal\" 4", "Uninhibit 77"},
    {"power manager", "org.freedesktop.PowerManagement", "/org/freedesktop/PowerManagement/Inhibit",
     "org.freedesktop.PowerManagement.Inhibit", "ss", "u", "ret = 77",
     "Inhibit \"Orvel Agent\" \"Orvel: telefondan erişilebilir kal\"", "UnInhibit 77"},
    {"portal", "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
     "org.freedesktop.portal.Inhibit", "sua{sv}", "o", "ret = dbus.ObjectPath('/request/1')",
     "Inhibit \"\" 4 {\"reason\": \"Orvel: telefondan erişilebilir kal\"}", nullptr},
};

TEST_F(LinuxPowerTest, theDesktopSessionIsAskedBesideTheLoginManager) {
    for (const auto& row : keeperRows) {
        SCOPED_TRACE(row.name);
        BusService keeper(session, row.service, row.path, row.interface);
        keeper.addMethod("Inhibit", row.signature, row.answers, row.code);
        for (const char* end : {"Uninhibit", "UnInhibit"})
            keeper.addMethod(end, "u", "", "");
        LinuxPower power(recheck);
        const auto assertion = power.preventIdleSleep(reason);
        EXPECT_TRUE(eventually([&] { return keeper.wasCalled(row.inhibited); })) << keeper.calls();
        power.release(assertion);
        if (row.uninhibited) {
            EXPECT_TRUE(eventually([&] { return keeper.wasCalled(row.uninhibited); }))
                << keeper.calls();
        }
        EXPECT_TRUE(eventually([&] { return !loginHolds(); }));
    }
}

struct ScreenSaverTest : LinuxPowerTest {
    std::unique_ptr<BusService> saver = startSaver();

    std::unique_ptr<BusService> startSaver() {
        auto made = std::make_unique<BusService>(session, "org.freedesktop.ScreenSaver",
                                                 "/org/freedesktop/ScreenSaver",
                                                 "org.freedesktop.ScreenSaver");
        made->addMethod("Inhibit", "ss", "u", "ret = 5");
        made->addMethod("UnInhibit", "u", "", "");
        made->addMethod("SimulateUserActivity", "", "", "");
        return made;
    }
};

TEST_F(ScreenSaverTest, isInhibitedOnlyWhileNothingBetterIsThere) {
    login.reset();
    LinuxPower power(recheck);
    power.preventIdleSleep(reason);
    ASSERT_TRUE(eventually([&] { return saver->wasCalled("Inhibit \"Orvel Agent\""); }));
    login = startLogin();
    EXPECT_TRUE(eventually([&] { return loginHolds() && saver->wasCalled("UnInhibit 5"); }));
}

TEST_F(ScreenSaverTest, isAskedAgainWhenItWasStartedAnew) {
    login.reset();
    LinuxPower power(recheck);
    power.preventIdleSleep(reason);
    ASSERT_TRUE(eventually([&] { return saver->wasCalled("Inhibit \"Orvel Agent\""); }));
    saver.reset();
    saver = startSaver();
    EXPECT_TRUE(eventually([&] { return saver->wasCalled("Inhibit \"Orvel Agent\""); }));
    EXPECT_FALSE(saver->wasCalled("UnInhibit")) << "that cookie belonged to the one before";
}

TEST_F(ScreenSaverTest, hearsOfUserActivity) {
    LinuxPower power;
    power.declareUserActivity("Orvel: telefon bağlandı");
    EXPECT_TRUE(eventually([&] { return saver->wasCalled("SimulateUserActivity"); }));
}

// An X server, and nothing on the buses.
struct XServerPowerTest : LinuxPowerTest {
    XServer server;
    ScopedEnvironment display{"DISPLAY", server.display()};

    XServerPowerTest() { login.reset(); }

    static bool saverIsOn(xcb_connection_t* connection) {
        const auto root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        auto* info = xcb_screensaver_query_info_reply(
            connection, xcb_screensaver_query_info(connection, root), nullptr);
        const bool on = info && info->state == XCB_SCREENSAVER_STATE_ON;
        free(info);
        return on;
    }
};

TEST_F(XServerPowerTest, userActivityEndsTheScreenSaver) {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    LinuxPower power;
    for (int round = 0; round < 2; ++round) {
        xcb_force_screen_saver(connection, XCB_SCREEN_SAVER_ACTIVE);
        ASSERT_TRUE(saverIsOn(connection));
        power.declareUserActivity("Orvel: telefon bağlandı");
        EXPECT_TRUE(eventually([&] { return !saverIsOn(connection); }));
    }
    xcb_disconnect(connection);
}

TEST_F(XServerPowerTest, theScreenSaverIsSuspendedWhileTheServerIsThere) {
    const auto inhibitor = inhibitByXServer();
    ASSERT_TRUE(inhibitor);
    EXPECT_TRUE(inhibitor->holds());
    server.kill();
    EXPECT_FALSE(inhibitor->holds());
    EXPECT_FALSE(inhibitByXServer());
}

TEST_F(XServerPowerTest, aSuspendedScreenSaverDoesNotStart) {
    auto inhibitor = inhibitByXServer();
    ASSERT_TRUE(inhibitor);
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    xcb_set_screen_saver(connection, 1, 0, XCB_BLANKING_PREFERRED, XCB_EXPOSURES_ALLOWED);
    EXPECT_FALSE(eventually([&] { return saverIsOn(connection); }, std::chrono::seconds(2)));
    inhibitor.reset();
    EXPECT_TRUE(eventually([&] { return saverIsOn(connection); }));
    xcb_disconnect(connection);
}

TEST_F(LinuxPowerTest, thatNothingKeepsTheComputerAwakeIsSaidOnce) {
    login.reset();
    BusService refusing(system, "org.freedesktop.login1", "/org/freedesktop/login1",
                        "org.freedesktop.login1.Manager");
    refusing.addMethod("Inhibit", "ssss", "h", "raise dbus.exceptions.DBusException('no')");
    testing::internal::CaptureStderr();
    {
        LinuxPower power(std::chrono::milliseconds(1));
        power.preventIdleSleep(reason);
        EXPECT_TRUE(eventually([&] {
            const auto calls = refusing.calls();
            return std::count(calls.begin(), calls.end(), '\n') >= 3;
        }));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "orvel: nothing here keeps the computer awake\n");
}

}  // namespace
}  // namespace orvel
