#include "OrvelAgent/Control/ControlServer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>

#include "OrvelAgent/Control/ControlClient.h"
#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

// A server on a state folder, with a handler that answers at once and keeps what it got.
struct ControlServerTest : testing::Test {
    TemporaryFolder folder;
    StateLocation here{folder / "state"};
    std::unique_ptr<InstanceLock> lock;
    SerialQueue mainQueue{"main"};
    SerialQueue controlQueue{"orvel.control"};
    std::unique_ptr<ControlServer> server;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<ControlRequest::Any> requests;
    std::deque<ControlServer::Answer> kept;  // while answering is off
    bool answering = true;

    void SetUp() override { start(); }
    void TearDown() override { stop(); }

    void start() {
        ASSERT_EQ(InstanceLock::acquire(here, lock), InstanceLock::Outcome::taken);
        auto socket = ControlSocket::listen(*lock);
        ASSERT_TRUE(socket);
        server = std::make_unique<ControlServer>(
            controlQueue, mainQueue, std::move(socket),
            [this](const ControlRequest::Any& request, ControlServer::Answer answer) {
                const std::lock_guard hold(mutex);
                requests.push_back(request);
                if (!answering) return kept.push_back(std::move(answer));
                const bool wantsAll = std::holds_alternative<ControlRequest::Snapshot>(request) ||
                                      std::holds_alternative<ControlRequest::Follow>(request);
                answer(wantsAll ? R"({"snapshot":{}})" : R"({"done":{}})");
            });
    }

    // As the program does: on the main queue.
    void stop() {
        std::unique_lock hold(mutex);
        bool done = false;
        mainQueue.post([&] {
            server.reset();
            const std::lock_guard inside(mutex);
            done = true;
            changed.notify_all();
        });
        changed.wait(hold, [&] { return done; });
    }

    std::unique_ptr<ControlClient> client() const { return ControlClient::open(here); }
    std::string ask(const std::string& line) const {
        const auto one = client();
        if (!one || !one->send(line)) return "(no connection)";
        return one->nextLine(20s).value_or("(no answer)");
    }
    std::string socketPath() const { return *here.folder + "/agent.socket"; }
};

TEST_F(ControlServerTest, requestsAreAnsweredInTheirOrder) {
    const auto one = client();
    ASSERT_TRUE(one);
    // Split and joined at will, and with a line end of another system.
    one->send("{\"snapshot\":{}}\r\n{\"forget\":{\"deviceID\":\"abc\"}}");
    one->send(R"({"setRemoteAccess":{"_0":"off"}})");
    EXPECT_EQ(one->nextLine(), R"({"snapshot":{}})");
    EXPECT_EQ(one->nextLine(), R"({"done":{}})");
    EXPECT_EQ(one->nextLine(), R"({"done":{}})");
    const std::lock_guard hold(mutex);
    ASSERT_EQ(requests.size(), 3u);
    const auto action = std::get<HeadlessAction::Any>(requests[1]);
    EXPECT_EQ(std::get<HeadlessAction::Forget>(action).deviceID, "abc");
}

TEST_F(ControlServerTest, theSocketIsItsOwnersAloneAndGoesWithTheServer) {
    EXPECT_EQ(modeOf(socketPath()), 0600u);
    {
        // What an earlier agent left behind is replaced.
        stop();
        EXPECT_EQ(modeOf(socketPath()), 0u);
        EXPECT_EQ(client(), nullptr);
        writeFile(socketPath(), "left behind");
        lock.reset();
        start();
        EXPECT_EQ(ask(R"({"snapshot":{}})"), R"({"snapshot":{}})");
    }
    // What has taken its place is not removed.
    ::unlink(socketPath().c_str());
    writeFile(socketPath(), "another");
    stop();
    EXPECT_EQ(modeOf(socketPath()) & 0700u, 0600u);
}

TEST_F(ControlServerTest, aFolderWithAPathLongerThanASocketsWorks) {
    stop();
    lock.reset();
    for (int i = 0; i < 10; ++i)
        *here.folder += "/quite-a-long-name-of-a-folder";
    start();
    EXPECT_EQ(ask(R"({"snapshot":{}})"), R"({"snapshot":{}})");
}

TEST_F(ControlServerTest, whatIsNoRequestGetsAnErrorAndTheEnd) {
    const std::string rows[] = {"nonsense",
                                "",
                                "{}",
                                "[1]",
                                R"({"explode":{}})",
                                R"({"snapshot":1})",
                                R"({"snapshot":{},"follow":{}})",
                                R"({"forget":{}})",
                                std::string(40, '['),
                                std::string("\0\xFF", 2),
                                std::string(ControlServer::maxLine, 'x')};
    for (const std::string& row : rows) {
        SCOPED_TRACE(row.substr(0, 50));
        const auto one = client();
        ASSERT_TRUE(one);
        EXPECT_TRUE(one->send(row));
        EXPECT_EQ(one->nextLine(20s).value_or("").find(R"({"error":")"), 0u);
        EXPECT_EQ(one->nextLine(20s), std::nullopt);
        EXPECT_TRUE(one->hasEnded());
    }
    EXPECT_EQ(ask(R"({"show":{}})"), R"({"done":{}})");
    const std::lock_guard hold(mutex);
    EXPECT_EQ(requests.size(), 1u);
}

TEST_F(ControlServerTest, followersGetEveryEventFromTheirAnswerOn) {
    const auto follower = client(), asker = client();
    follower->send(R"({"follow":{}})");
    EXPECT_EQ(follower->nextLine(), R"({"snapshot":{}})");
    asker->send(R"({"snapshot":{}})");
    EXPECT_EQ(asker->nextLine(), R"({"snapshot":{}})");
    server->publish(R"({"relay":true})");
    EXPECT_EQ(follower->nextLine(), R"({"relay":true})");
    follower->send(R"({"disconnect":{}})");  // and may still ask
    EXPECT_EQ(follower->nextLine(), R"({"done":{}})");
    asker->send(R"({"show":{}})");
    EXPECT_EQ(asker->nextLine(), R"({"done":{}})") << "no event came between";
}

TEST_F(ControlServerTest, whoNeverReadsIsDroppedAndHoldsNobody) {
    const auto stuck = client(), other = client();
    for (const auto& one : {stuck.get(), other.get()}) {
        one->send(R"({"follow":{}})");
        EXPECT_EQ(one->nextLine(), R"({"snapshot":{}})");
    }
    const std::string event = R"({"history":")" + std::string(60'000, 'x') + R"("})";
    constexpr int count = 100;  // more than the kernel and the server keep together
    for (int i = 0; i < count; ++i) {
        server->publish(event);
        ASSERT_EQ(other->nextLine(20s), event) << i;
    }
    int received = 0;
    while (stuck->nextLine(20s))
        ++received;
    EXPECT_TRUE(stuck->hasEnded());
    EXPECT_LT(received, count);
    EXPECT_EQ(ask(R"({"show":{}})"), R"({"done":{}})");
}

TEST_F(ControlServerTest, requestsWaitForTheAnswerBeforeAndGoneOnesAreForgotten) {
    {
        const std::lock_guard hold(mutex);
        answering = false;
    }
    auto hasty = client();
    for (int i = 0; i < 100; ++i)
        hasty->send(R"({"disconnect":{}})");
    const auto keptCount = [this] {
        const std::lock_guard hold(mutex);
        return kept.size();
    };
    EXPECT_TRUE(eventually([&] { return keptCount() == 1; }));
    hasty.reset();
    auto later = client();
    later->send(R"({"snapshot":{}})");
    EXPECT_TRUE(eventually([&] { return keptCount() == 2; })) << "the others waited";
    ControlServer::Answer first, second;
    {
        const std::lock_guard hold(mutex);
        first = kept[0];
        second = kept[1];
    }
    first("late");
    second("second");
    EXPECT_EQ(later->nextLine(), "second");
    stop();
    second("after the end");
    EXPECT_EQ(later->nextLine(), std::nullopt);
}

TEST_F(ControlServerTest, thereIsRoomForSoManyAndAgainWhenOneLeaves) {
    std::vector<std::unique_ptr<ControlClient>> many;
    for (std::size_t i = 0; i < ControlServer::maxClients; ++i) {
        many.push_back(client());
        many.back()->send(R"({"follow":{}})");
        ASSERT_EQ(many.back()->nextLine(20s), R"({"snapshot":{}})") << i;
    }
    const auto beyond = client();
    EXPECT_EQ(beyond->nextLine(20s), R"({"error":"too many commands at once"})");
    EXPECT_EQ(beyond->nextLine(20s), std::nullopt);
    many.pop_back();
    EXPECT_TRUE(eventually([&] { return ask(R"({"show":{}})") == R"({"done":{}})"; }));
}

TEST_F(ControlServerTest, anotherUserIsHungUpOn) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    // As if a careless user had opened everything.
    for (const auto& path : {folder.path.string(), *here.folder})
        chmod(path.c_str(), 0755);
    chmod(socketPath().c_str(), 0666);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_TRUE(succeedsWithoutPrivileges([&] {
        const int stream = socket(AF_UNIX, SOCK_STREAM, 0);
        if (connect(stream, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            return false;
        char byte;
        return recv(stream, &byte, 1, 0) <= 0;
    }));
    const std::lock_guard hold(mutex);
    EXPECT_TRUE(requests.empty());
}

}  // namespace
}  // namespace orvel
