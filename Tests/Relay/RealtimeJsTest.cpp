// The hosted service's own client library against the local relay.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "OrvelKit/Relay/Inbox.h"
#include "OrvelKit/Relay/RealtimeChannel.h"
#include "Relay/RelayServer.h"

namespace orvel {
namespace {

struct Close {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

std::string lineOf(FILE& pipe) {
    std::string line;
    for (int c = 0; (c = std::fgetc(&pipe)) != EOF && c != '\n';)
        line += static_cast<char>(c);
    return line;
}

// One test for each form of the protocol that the library speaks.
struct RealtimeJs : testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Versions, RealtimeJs, testing::Values("1.0.0", "2.0.0"));

TEST_P(RealtimeJs, joinsBroadcastsAndHears) {
    const std::filesystem::path folder = RELAY_CLIENTS;
    if (!exists(folder / "node_modules")) {
        GTEST_SKIP() << "the client library is missing: ./orvel setup test";
    }
    SerialQueue relayQueue("relay"), realtimeQueue("orvel.realtime");
    std::unique_ptr<RelayServer> relay;
    Inbox<std::uint16_t> ports;
    relayQueue.post([&] {
        relay = std::make_unique<RelayServer>(relayQueue, RelayServer::Options{});
        ports.put(relay->port());
    });
    const auto address = "127.0.0.1:" + std::to_string(ports.take().value());

    Inbox<std::string> heard;
    const auto agent = RealtimeChannel::make(
        realtimeQueue, systemWebSockets({}),
        RelayConfig(RelayProject::from("http://" + address, "local").value()), "orvel-abc");
    agent->onJoined = [&](bool joined) { heard.put(joined ? "joined" : "left"); };
    agent->onBroadcast = [&](const Bytes& payload) { heard.put(std::string(textOf(payload))); };
    agent->start();
    EXPECT_EQ(heard.take(), "joined");

    const std::unique_ptr<FILE, Close> client(
        popen(("exec node '" + (folder / "client.mjs").string() + "' ws://" + address +
               "/realtime/v1 local orvel-abc " + GetParam() + " 2>&1")
                  .c_str(),
              "r"));
    ASSERT_TRUE(client);
    ASSERT_EQ(lineOf(*client), "joined");
    for (const std::string text : {R"({"n":1,"text":"ç"})", R"({"last":true})"}) {
        const auto bytes = bytesOf(text);
        agent->send(Bytes(bytes.begin(), bytes.end()));
        EXPECT_EQ(lineOf(*client), "signal " + text);
        EXPECT_EQ(heard.take(), R"({"echo":)" + text + "}");
    }
    EXPECT_EQ(lineOf(*client), "left ok");
    EXPECT_EQ(lineOf(*client), "") << "and nothing more";

    Inbox<bool> gone;
    relayQueue.post([&] {
        relay.reset();
        gone.put(true);
    });
    EXPECT_TRUE(gone.take());
}

}  // namespace
}  // namespace orvel
