#include "OrvelAgent/Platform/Linux/LinuxNotifier.h"

#include <gtest/gtest.h>

#include <csignal>

#include "Tests/Support/BusService.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/XServer.h"

namespace orvel {
namespace {

constexpr const char* name = "org.freedesktop.Notifications";

struct LinuxNotifierTest : testing::Test {
    PrivateBus bus;
    ScopedEnvironment address{"DBUS_SESSION_BUS_ADDRESS", bus.address()};

    // Numbers what it shows from `first` on; capabilities as a Python list.
    std::unique_ptr<BusService> startDaemon(int first, const std::string& capabilities = "[]") {
        auto made = std::make_unique<BusService>(bus, name, "/org/freedesktop/Notifications", name);
        made->addMethod("GetCapabilities", "", "as",
                        "ret = dbus.Array(" + capabilities + ", signature='s')");
        made->addMethod("Notify", "susssasa{sv}i", "u",
                        "self.count = getattr(self, 'count', " + std::to_string(first) +
                            " - 1) + 1\nret = args[1] or self.count");
        return made;
    }
    static testing::AssertionResult shows(const BusService& daemon, const std::string& call) {
        if (eventually([&] { return daemon.wasCalled(call); })) return testing::AssertionSuccess();
        return testing::AssertionFailure() << call << " is not in\n" << daemon.calls();
    }
};

std::string notify(int replaced, const std::string& title, const std::string& body) {
    return "Notify \"Orvel Agent\" " + std::to_string(replaced) + " \"orvel-agent\" \"" + title +
           "\" \"" + body + "\" [] {";
}

TEST_F(LinuxNotifierTest, aLaterOneOfTheSameIdentifierTakesItsPlace) {
    const auto daemon = startDaemon(7);
    LinuxNotifier notifier;
    notifier.post({"a", "Uzaktan erişim açıldı", "bir"});
    notifier.post({"b", "T", "iki"});
    notifier.post({"a", "T", "üç"});
    EXPECT_TRUE(shows(*daemon, notify(0, "Uzaktan erişim açıldı", "bir")));
    EXPECT_TRUE(shows(*daemon, notify(0, "T", "iki")));
    EXPECT_TRUE(shows(*daemon, notify(7, "T", "üç")));
}

TEST_F(LinuxNotifierTest, bodiesAreNoMarkup) {
    for (const bool markup : {false, true}) {
        const auto daemon = startDaemon(1, markup ? "['actions', 'body-markup']" : "['body']");
        LinuxNotifier notifier;
        notifier.post({"a", "<b>", "<b>Cep</b> & \xFF Co"});
        EXPECT_TRUE(shows(
            *daemon,
            notify(0, "<b>", markup ? "&lt;b&gt;Cep&lt;/b&gt; &amp; � Co" : "<b>Cep</b> & � Co")));
    }
}

TEST_F(LinuxNotifierTest, withoutADaemonNothingHappensUntilOneComes) {
    LinuxNotifier notifier;
    notifier.post({"a", "T", "lost"});
    auto daemon = startDaemon(7);
    notifier.post({"a", "T", "first"});
    ASSERT_TRUE(shows(*daemon, notify(0, "T", "first")));
    // Another one's number 7 is not ours.
    daemon.reset();
    daemon = startDaemon(7);
    notifier.post({"a", "T", "second"});
    EXPECT_TRUE(shows(*daemon, notify(0, "T", "second")));
    daemon.reset();
    bus.stop();
    notifier.post({"a", "T", "lost"});
    bus.start();
    daemon = startDaemon(7);
    EXPECT_TRUE(eventually([&] {
        notifier.post({"a", "T", "third"});
        return daemon->wasCalled("third");
    }));
}

TEST_F(LinuxNotifierTest, aHangingDaemonOrBusHoldsNobody) {
    auto daemon = startDaemon(1);
    daemon->process().signal(SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    {
        LinuxNotifier notifier;
        for (int i = 0; i < 100; ++i)
            notifier.post({std::to_string(i), "T", "B"});
    }
    bus.process().signal(SIGSTOP);
    {
        LinuxNotifier notifier;
        notifier.post({"a", "T", "B"});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    bus.process().signal(SIGCONT);
    daemon->process().signal(SIGCONT);
    const ScopedEnvironment none("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    const ScopedEnvironment nowhere("XDG_RUNTIME_DIR", std::nullopt);
    LinuxNotifier().post({"a", "T", "B"});
}

TEST_F(LinuxNotifierTest, aDesktopsDaemonShowsThemAsTheyAre) {
    const XServer server;
    const TemporaryFolder folder;
    auto environment = bus.asSession();
    environment["DISPLAY"] = server.display();
    environment["HOME"] = folder.path;
    const BackgroundProcess dunst(
        {.command = {"dunst"}, .environment = environment, .outputFile = folder / "log"});
    ASSERT_TRUE(eventually([&] { return bus.hasOwner(name); })) << fileText(folder / "log");
    const auto ask = [&](const std::string& method, const std::vector<std::string>& arguments) {
        return bus.call(name, "/org/freedesktop/Notifications", method, arguments)
            .value_or(std::string());
    };
    const auto areShown = [&](int count) {
        return eventually([&] {
            const auto shown = ask("org.freedesktop.DBus.Properties.Get",
                                   {"string:org.dunstproject.cmd0", "string:displayedLength"});
            return shown.find("uint32 " + std::to_string(count) + '\n') != std::string::npos;
        });
    };
    LinuxNotifier notifier;
    notifier.post({"a", "Yeni telefon eşleşti", "eski"});
    notifier.post({"b", "Uzaktan erişim açıldı", "<b>Cep</b> & Co"});
    ASSERT_TRUE(areShown(2)) << fileText(folder / "log");
    notifier.post({"a", "Yeni telefon eşleşti", "yeni"});
    const BackgroundProcess::Options search{
        .command = {"xdotool", "search", "--onlyvisible", "--class", "Dunst"},
        .environment = environment,
        .outputFile = folder / "windows"};
    EXPECT_TRUE(eventually([&] { return BackgroundProcess(search).wait() == 0; }));
    // It keeps what it has shown.
    std::string history;
    EXPECT_TRUE(eventually([&] {
        ask("org.dunstproject.cmd0.NotificationCloseAll", {});
        history = ask("org.dunstproject.cmd0.NotificationListHistory", {});
        return history.find("yeni") != std::string::npos;
    })) << history;
    EXPECT_EQ(history.find("eski"), std::string::npos);
    EXPECT_NE(history.find("&lt;b&gt;Cep&lt;/b&gt; &amp; Co"), std::string::npos) << history;
}

}  // namespace
}  // namespace orvel
