// The whole program with its windows: a real X server, a window manager, phones that pair.

#include <gtest/gtest.h>
#include <signal.h>

#include "Phone/PhoneConnection.h"
#include "Tests/Panel/TurkishLocale.h"
#include "Tests/Support/AgentProcess.h"
#include "Tests/Support/XServer.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using phone::PhoneConnection;

constexpr const char* panelTitle = "^Orvel Agent$";
constexpr const char* pairingTitle = "^Bir telefon bu Mac'e ";  // xdotool knows ASCII alone

class WindowedAgentTest : public testing::Test {
protected:
    std::vector<std::string> command(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words{
            ORVEL_AGENT_PROGRAM, "--state-dir",    folder / "state", "--bind",
            "127.0.0.1",         "--no-advertise", "--name",         "Masa"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    void start(const std::vector<std::string>& more = {}) {
        agent.emplace(command(more), environment);
        const std::string line = "listening on port ";
        ASSERT_TRUE(eventually([&] {
            const std::string log = agent->errors();
            const auto at = log.find(line);
            if (at == std::string::npos) return false;
            port = log.substr(at + line.size());
            port.erase(std::min(port.find('\n'), port.size()));
            return true;
        })) << agent->errors();
    }
    // Without a tray its panel comes as a window.
    void startWithPanel() {
        start();
        ASSERT_TRUE(eventually([&] { return isVisible(panelTitle); })) << agent->errors();
    }
    // Ends it while its window is open.
    void TearDown() override {
        if (!agent) return;
        agent->signal(SIGINT);
        EXPECT_EQ(agent->wait(), 0) << agent->errors();
    }

    bool isVisible(const std::string& title) {
        const std::string found = folder / "found";
        BackgroundProcess search(
            {.command = {"xdotool", "search", "--onlyvisible", "--name", title},
             .environment = {{"DISPLAY", server.display()}},
             .outputFile = found});
        return search.wait() == 0 && !fileText(found).empty();
    }

    TemporaryFolder folder;
    TurkishLocale turkish;
    XServer server{XServer::Options{.width = 1280, .height = 900}};
    BackgroundProcess manager{{.command = {"openbox"},
                               .environment = {{"DISPLAY", server.display()}},
                               .outputFile = folder / "openbox"}};
    const std::map<std::string, std::string> environment{
        {"DISPLAY", server.display()},    {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
        {"PULSE_SERVER", "/nonexistent"}, {"LC_ALL", TurkishLocale::name},
        {"LOCPATH", turkish.path()},      {"LSAN_OPTIONS", turkish.leakOptions()}};
    std::optional<LineProcess> agent;
    std::string port;
};

TEST_F(WindowedAgentTest, showsAPhoneThatPairsAsLongAsItDoes) {
    startWithPanel();
    PhoneConnection connection(Identity{PrivateKey::generate()});
    ASSERT_TRUE(connection.connect("127.0.0.1", static_cast<std::uint16_t>(std::stoi(port))));
    ASSERT_TRUE(connection.secure());
    ASSERT_TRUE(eventually([&] { return isVisible(pairingTitle); })) << agent->errors();
    connection.send({connection.hello("Telefon", connection.code())});
    EXPECT_TRUE(connection.waitFor<Welcome>()) << agent->errors();
    EXPECT_TRUE(eventually([&] { return !isVisible(pairingTitle); }));
}

TEST_F(WindowedAgentTest, showsTheReferencePhoneUntilItsUserGivesUp) {
    startWithPanel();
    LineProcess phone({ORVEL_PHONE_PROGRAM, "--state-dir", folder / "phone", "--host", "127.0.0.1",
                       "--port", port, "pair"});
    ASSERT_TRUE(eventually([&] { return isVisible(pairingTitle); }))
        << agent->errors() << phone.errors();
    phone.closeInput();
    EXPECT_EQ(phone.wait(), 1) << phone.errors();
    EXPECT_TRUE(eventually([&] { return !isVisible(pairingTitle); }));
    EXPECT_TRUE(isVisible(panelTitle));
}

TEST_F(WindowedAgentTest, aSecondStartByAPersonShowsThePanelOfTheRunningOne) {
    start({"--at-login"});
    LineProcess atLogin(command({"--at-login"}), environment);
    EXPECT_EQ(atLogin.wait(), 0) << atLogin.errors();
    EXPECT_FALSE(isVisible(panelTitle));
    LineProcess second(command(), environment);
    EXPECT_EQ(second.wait(), 0) << second.errors();
    EXPECT_TRUE(eventually([&] { return isVisible(panelTitle); })) << agent->errors();
}

TEST_F(WindowedAgentTest, aHeadlessOneDoesNotGoNearTheDesktopsToolkit) {
    const BackgroundProcess headless({.command = command({"--headless"}),
                                      .environment = environment,
                                      .outputFile = folder / "lines"});
    const auto says = [&](const char* text) {
        return fileText(folder / "lines").find(text) != std::string::npos;
    };
    ASSERT_TRUE(eventually([&] { return says("\"waiting\""); })) << fileText(folder / "lines");
    const std::string maps = fileText("/proc/" + std::to_string(headless.id()) + "/maps");
    EXPECT_NE(maps.find("libxcb.so"), std::string::npos);
    EXPECT_EQ(maps.find("/platforms/"), std::string::npos);
}

}  // namespace
}  // namespace orvel
