#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <optional>

#include "Phone/PhoneConnection.h"
#include "Tests/Support/AgentProcess.h"
#include "Tests/Support/XServer.h"

namespace orvel {

// The real program on a real X server, and a phone that it knows.
class AgentDesktop : public testing::Test {
protected:
    static constexpr int width = 640, height = 480;

    // An end without complaints, a sanitizer's among them.
    void TearDown() override {
        if (agent) endAgent();
    }
    void endAgent() {
        agent->signal(SIGTERM);
        EXPECT_EQ(agent->wait(), 0) << agent->errors();
        agent.reset();
    }

    void startAgent(const std::map<std::string, std::string>& environment = {}) {
        agent = std::make_unique<AgentProcess>(folder / "state", server.display(),
                                               std::vector<std::string>{}, environment);
        port = agent->waitListening();
        ASSERT_NE(port, 0) << agent->errors();
    }
    // Paired at the first time, known later.
    std::unique_ptr<phone::PhoneConnection> admitted(int receiveBuffer = 0) {
        auto connection = std::make_unique<phone::PhoneConnection>(identity);
        EXPECT_TRUE(
            connection->connect("127.0.0.1", port, std::chrono::seconds(10), receiveBuffer));
        EXPECT_TRUE(connection->secure());
        connection->send({connection->hello("Telefon", connection->code())});
        welcome = connection->waitFor<Welcome>();
        EXPECT_TRUE(welcome) << agent->errors();
        return connection;
    }
    TemporaryFolder folder;
    XServer server{XServer::Options{.width = width, .height = height}};
    std::unique_ptr<AgentProcess> agent;
    std::uint16_t port = 0;
    const Identity identity{PrivateKey::generate()};
    std::optional<Welcome> welcome;
};

}  // namespace orvel
