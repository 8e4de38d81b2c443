#include "OrvelAgent/Core/TcpListener.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>

using namespace std::chrono_literals;

namespace orvel {
namespace {

// The peer's end, a plain blocking socket with bounded waits.
class Peer {
public:
    Peer(const std::string& address, std::uint16_t port) {
        const bool isV6 = address.find(':') != std::string::npos;
        descriptor = socket(isV6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
        const timeval limit{10, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        inet_pton(AF_INET6, address.c_str(), &v6.sin6_addr);
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        inet_pton(AF_INET, address.c_str(), &v4.sin_addr);
        isConnected =
            (isV6 ? connect(descriptor, reinterpret_cast<sockaddr*>(&v6), sizeof v6)
                  : connect(descriptor, reinterpret_cast<sockaddr*>(&v4), sizeof v4)) == 0;
    }
    ~Peer() { ::close(descriptor); }

    void write(const std::string& text) {
        ASSERT_EQ(::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL), ssize_t(text.size()));
    }
    // Until the end of the stream; "error" when it was reset.
    std::string readAll() {
        std::string all;
        char chunk[4096];
        while (true) {
            const ssize_t count = recv(descriptor, chunk, sizeof chunk, 0);
            if (count < 0) return "error";
            if (count == 0) return all;
            all.append(chunk, static_cast<std::size_t>(count));
        }
    }
    int descriptor = -1;
    bool isConnected = false;
};

class TcpListenerTest : public testing::Test {
protected:
    Listener::Result listen(const std::string& address, std::uint16_t port) {
        std::promise<Listener::Result> result;
        queue.post([&] {
            listener = makeTcpListener(queue);
            result.set_value(listener->listen(
                address, port,
                {[this](std::unique_ptr<Connection> connection) { arrived(std::move(connection)); },
                 [](const std::string& description) { ADD_FAILURE() << description; }}));
        });
        return result.get_future().get();
    }
    void arrived(std::unique_ptr<Connection> connection) {
        const std::lock_guard hold(mutex);
        connections.push_back(std::move(connection));
        changed.notify_all();
    }
    Connection& connection(std::size_t index) {
        std::unique_lock hold(mutex);
        changed.wait_for(hold, 10s, [&] { return connections.size() > index; });
        return *connections.at(index);
    }
    void onQueue(std::function<void()> action) {
        std::promise<void> done;
        queue.post([&] {
            action();
            done.set_value();
        });
        done.get_future().get();
    }
    void TearDown() override {
        onQueue([this] {
            listener.reset();
            connections.clear();
        });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::unique_ptr<Listener> listener;
    std::vector<std::unique_ptr<Connection>> connections;
    SerialQueue queue{"orvel.test"};
};

TEST_F(TcpListenerTest, listensOnTheAddressAskedForAndRefusesATakenPort) {
    const auto first = listen("127.0.0.1", 0);
    ASSERT_NE(first.port, 0) << first.error;
    SerialQueue other("orvel.other");
    std::promise<Listener::Result> second;
    other.post(
        [&] { second.set_value(makeTcpListener(other)->listen("127.0.0.1", first.port, {})); });
    const auto refused = second.get_future().get();
    EXPECT_EQ(refused.port, 0);
    EXPECT_FALSE(refused.error.empty());
    Peer peer("127.0.0.1", first.port);
    EXPECT_EQ(connection(0).remoteAddress(), "127.0.0.1");
}

TEST_F(TcpListenerTest, listensOnLoopbackOfTheOtherFamilyToo) {
    const auto result = listen("::1", 0);
    if (result.port == 0) GTEST_SKIP() << "this machine has no IPv6: " << result.error;
    Peer peer("::1", result.port);
    EXPECT_EQ(connection(0).remoteAddress(), "::1");
}

TEST_F(TcpListenerTest, phonesConnectionsAreProbedAndKeepLittleUnsent) {
    const auto port = listen("127.0.0.1", 0).port;
    Peer peer("127.0.0.1", port);
    connection(0);
    // The accepted socket is the one whose peer is ours.
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(peer.descriptor, reinterpret_cast<sockaddr*>(&own), &size);
    int accepted = -1;
    for (int descriptor = 3; descriptor < 1024 && accepted < 0; ++descriptor) {
        sockaddr_in remote{};
        size = sizeof remote;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&remote), &size) == 0 &&
            remote.sin_family == AF_INET && remote.sin_port == own.sin_port)
            accepted = descriptor;
    }
    ASSERT_GE(accepted, 0);
    const struct {
        int level, option, want;
    } rows[] = {{IPPROTO_TCP, TCP_NODELAY, 1},
                {SOL_SOCKET, SO_KEEPALIVE, 1},
                {IPPROTO_TCP, TCP_KEEPIDLE, 30},
                {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                {IPPROTO_TCP, TCP_KEEPCNT, 3},
                {IPPROTO_TCP, TCP_USER_TIMEOUT, 60'000},
                {IPPROTO_TCP, TCP_NOTSENT_LOWAT, 131'072}};
    for (const auto& row : rows) {
        int value = 0;
        size = sizeof value;
        getsockopt(accepted, row.level, row.option, &value, &size);
        EXPECT_EQ(value, row.want) << row.option;
    }
}

TEST_F(TcpListenerTest, bytesArriveAndWhatWasSentIsReadAlthoughTheEndLeavesBytesUnread) {
    const auto port = listen("127.0.0.1", 0).port;
    Peer peer("127.0.0.1", port);
    peer.write("hello");
    std::promise<std::string> heard;
    auto& accepted = connection(0);
    onQueue([&] {
        accepted.receive(
            [&](std::optional<ByteView> chunk) { heard.set_value(std::string(textOf(*chunk))); });
    });
    EXPECT_EQ(heard.get_future().get(), "hello");
    peer.write(std::string(100'000, 'x'));  // never read: closing now would reset the connection
    static const std::string bye = "rejected";
    onQueue([&] {
        accepted.send(bytesOf(bye), [&](bool sent) {
            EXPECT_TRUE(sent);
            accepted.finish();
        });
    });
    EXPECT_EQ(peer.readAll(), "rejected");
}

TEST_F(TcpListenerTest, aSendToAPeerThatDoesNotReadStaysWithTheSender) {
    const auto port = listen("127.0.0.1", 0).port;
    Peer peer("127.0.0.1", port);
    auto& accepted = connection(0);
    const Bytes block(64 * 1024);
    std::atomic<int> completed{0};
    std::function<void()> sendNext = [&] {
        accepted.send(block, [&](bool sent) {
            if (sent) ++completed, sendNext();
        });
    };
    onQueue(sendNext);
    // Until it stalls: no progress while a hundred other tasks and a timer went by.
    int last = -1;
    for (int i = 0; i < 1000 && completed != last; ++i) {
        last = completed;
        std::promise<void> later;
        auto timer = queue.after(20ms, [&] { later.set_value(); });
        later.get_future().get();
    }
    // The peer's receive buffer and 128 KiB here: far from the megabytes of a full send buffer.
    EXPECT_LT(completed * block.size(), 1024u * 1024);
    const int stalledAt = completed;
    onQueue([&] { accepted.cancel(); });
    onQueue([] {});
    EXPECT_EQ(completed, stalledAt);
}

TEST_F(TcpListenerTest, thePeersEndIsReported) {
    const auto port = listen("127.0.0.1", 0).port;
    std::promise<bool> ended;
    {
        Peer peer("127.0.0.1", port);
        auto& accepted = connection(0);
        onQueue([&] {
            accepted.receive([&](std::optional<ByteView> chunk) { ended.set_value(!chunk); });
        });
    }
    EXPECT_TRUE(ended.get_future().get());
}

}  // namespace
}  // namespace orvel
