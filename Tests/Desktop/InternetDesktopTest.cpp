// The real programs away from home: relay, agent and phone, which share nothing but the relay once
// they are paired.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <fstream>

#include "Tests/Desktop/AgentDesktop.h"
#include "Tests/Support/XReader.h"

using testing::HasSubstr;

namespace orvel {
namespace {

// As another program sees them.
std::string streamsOf(const std::string& film) {
    const TemporaryFolder folder;
    BackgroundProcess probe({.command = {"ffprobe", "-v", "error", "-show_entries",
                                         "stream=codec_name,width,height", "-of", "csv=p=0", film},
                             .outputFile = folder / "out"});
    EXPECT_EQ(probe.wait(), 0) << fileText(folder / "out");
    return fileText(folder / "out");
}

class InternetDesktopTest : public AgentDesktop {
protected:
    explicit InternetDesktopTest(const std::vector<std::string>& relayOptions = {})
        : relay(relayCommand(relayOptions)) {}

    static std::vector<std::string> relayCommand(const std::vector<std::string>& options) {
        std::vector<std::string> command{ORVEL_RELAY_PROGRAM, "--port", "0"};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    void SetUp() override {
        const auto listening = relay.readLine();
        ASSERT_TRUE(listening) << relay.errors();
        const std::string number = listening->substr(listening->rfind(':') + 1);
        relayUrl = "http://127.0.0.1:" + std::to_string(std::atoi(number.c_str()));
        startAgent({{"ORVEL_PROJECT_URL", relayUrl}, {"ORVEL_PROJECT_KEY", "local"}});
        ASSERT_TRUE(agent->readUntil(R"({"relay":true})"));
        pair();
    }

    void pair() {
        LineProcess pairing({ORVEL_PHONE_PROGRAM, "--state-dir", folder / "phone", "--host",
                             "127.0.0.1", "--port", std::to_string(port), "pair"});
        const auto code = agent->readUntil(R"("pairingCode":")");
        ASSERT_TRUE(code);
        pairing.writeLine(AgentProcess::valueOf(*code, "pairingCode"));
        ASSERT_EQ(pairing.wait(), 0) << pairing.errors();
        ASSERT_TRUE(agent->readUntil(R"("waiting")"));
    }

    // A command of the phone's, to its end; what it wrote is in `wrote`.
    int phone(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{ORVEL_PHONE_PROGRAM, "--state-dir", folder / "phone",
                                         "--internet",        "--relay",     relayUrl};
        command.insert(command.end(), arguments.begin(), arguments.end());
        BackgroundProcess process({.command = command, .outputFile = folder / "wrote"});
        const auto status = process.wait();
        wrote = fileText(folder / "wrote");
        return status.value_or(-1000);
    }

    LineProcess relay;
    std::string relayUrl, wrote;
};

// The TURN server of ./orvel setup, for those who know the secret.
class TurnServer {
public:
    static bool isThere() { return access(ORVEL_TURN_SERVER, X_OK) == 0; }

    TurnServer() {
        std::ofstream(secretFile) << "north\n";
        std::ofstream(folder / "conf")
            << "listening-ip=127.0.0.1\nrelay-ip=127.0.0.1\nlistening-port=" << port
            << "\nrealm=orvel\nuse-auth-secret\nstatic-auth-secret=north\nallow-loopback-peers\n"
               "no-cli\nno-tls\nno-dtls\nrelay-threads=1\nlog-file=stdout\nverbose\nuserdb="
            << folder / "db"
            << "\npidfile=" << folder / "pid"
            << "\n";
        if (!isThere()) return;
        server.emplace(BackgroundProcess::Options{
            .command = {ORVEL_TURN_SERVER, "-c", folder / "conf"}, .outputFile = folder / "log"});
        EXPECT_TRUE(eventually([&] { return count("UDP listener opened") > 0; })) << log();
    }

    std::string log() const { return fileText(folder / "log"); }
    int count(const std::string& what) const {
        const std::string text = log();
        int found = 0;
        for (auto at = text.find(what); at != text.npos; at = text.find(what, at + 1))
            ++found;
        return found;
    }

    TemporaryFolder folder;
    // It takes no port 0. Nobody else is given this one soon.
    const std::uint16_t port = freePort();
    const std::string secretFile = folder / "secret";

private:
    static std::uint16_t freePort() {
        boost::asio::io_context io;
        using boost::asio::ip::udp;
        return udp::socket(io, {boost::asio::ip::address_v4::loopback(), 0})
            .local_endpoint()
            .port();
    }

    std::optional<BackgroundProcess> server;
};

class TurnDesktopTest : public InternetDesktopTest {
protected:
    explicit TurnDesktopTest(std::unique_ptr<TurnServer> started = std::make_unique<TurnServer>())
        : InternetDesktopTest({"--turn", "turn:127.0.0.1:" + std::to_string(started->port),
                               "--turn-secret-file", started->secretFile}),
          turn(std::move(started)) {}

    void SetUp() override {
        if (!TurnServer::isThere()) GTEST_SKIP() << "no TURN server here";
        BackgroundProcess write({.command = {ORVEL_AGENT_PROGRAM, "--state-dir", folder / "state",
                                             "defaults", "write", "relayOnly", "true"}});
        ASSERT_EQ(write.wait(), 0);
        InternetDesktopTest::SetUp();
    }

    std::unique_ptr<TurnServer> turn;
};

TEST_F(InternetDesktopTest, everyCommandWorksThroughTheRelayAsOnTheLocalNetwork) {
    const std::string shared = folder / "shared";
    ASSERT_EQ(mkdir(shared.c_str(), 0700), 0);
    std::string content(5'000'000, '\0');
    std::uint32_t seed = 1;
    for (char& byte : content)
        byte = static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
    std::ofstream(shared + "/dosya ş", std::ios::binary) << content;

    EXPECT_EQ(phone({"ls", shared}), 0) << wrote;
    EXPECT_THAT(wrote, HasSubstr("dosya ş"));
    EXPECT_EQ(phone({"get", shared + "/dosya ş", "-o", folder / "fetched"}), 0) << wrote;
    EXPECT_TRUE(fileText(folder / "fetched") == content);

    XReader window(server.display());
    EXPECT_EQ(phone({"type", "ağ üzerinden"}), 0) << wrote;
    EXPECT_EQ(window.takeText(), "ağ üzerinden");

    EXPECT_EQ(phone({"shot", folder / "shot.png"}), 0) << wrote;
    EXPECT_THAT(wrote, HasSubstr("640x480"));
    EXPECT_EQ(phone({"--json", "watch", "--seconds", "0.5", "-o", folder / "film.mp4"}), 0)
        << wrote;
    EXPECT_THAT(wrote, HasSubstr(R"("width":640,"height":480)"));
    EXPECT_EQ(streamsOf(folder / "film.mp4"), "h264,640,480\nopus\n");
    EXPECT_EQ(phone({"clip", std::string(100'000, '\x01')}), 1);
    EXPECT_THAT(wrote, HasSubstr("too long"));
}

TEST_F(InternetDesktopTest, standbyIsUnlockedForOneSessionAndLocksAgain) {
    agent->writeLine(R"({"setRemoteAccess":{"_0":"standby"}})");
    ASSERT_TRUE(eventually([&] { return phone({"displays"}) == 1; }));
    EXPECT_THAT(wrote, HasSubstr("--unlock"));
    EXPECT_EQ(phone({"--unlock", "displays"}), 0) << wrote;
    EXPECT_TRUE(agent->readUntil(R"("until")")) << "unlocked";
    EXPECT_TRUE(agent->readUntil(R"({"unlock":{"name":)")) << "locked again";
    EXPECT_EQ(phone({"displays"}), 1);
    EXPECT_THAT(wrote, HasSubstr("--unlock"));
}

TEST_F(TurnDesktopTest, aTurnServerAloneIsWayEnough) {
    EXPECT_EQ(phone({"--relay-only", "ls", "/"}), 0) << wrote << turn->log();
    EXPECT_THAT(wrote, HasSubstr("tmp"));
    EXPECT_GE(turn->count("ALLOCATE processed, success"), 2) << "both have an address there";
}

}  // namespace
}  // namespace orvel
