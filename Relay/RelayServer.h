#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"
#include "Relay/RealtimeHub.h"
#include "Relay/RelayAccounts.h"
#include "Relay/TurnCredentials.h"

namespace orvel {

// A relay for one household, in the hosted service's shape: the realtime websocket, anonymous users
// and the ICE function, over plain HTTP. Everything lives in memory. Belongs to the queue, on which
// it is made and destroyed.
class RelayServer {
public:
    struct Options {
        std::string address = "127.0.0.1";  // a local one, "0.0.0.0" or "::" for all
        std::uint16_t port = 0;             // 0: a free one
        std::string key = "local";          // the project's anonymous key
        std::size_t maxConnections = 200;
        std::chrono::seconds idleTime{60};  // a websocket from which nothing comes is closed
        std::chrono::milliseconds refusalDelay{2000};  // of a websocket
        RealtimeHub::Options realtime;
        RelayAccounts::Options accounts;
        IceFunction ice;
    };

    static constexpr std::size_t maxFrame = 5 << 20;  // a longer one ends its connection, code 1009
    static constexpr std::size_t maxBody = 64 << 10;  // of a request
    static constexpr std::size_t maxWaiting = 8 << 20;  // to be sent to a client that does not read
    static constexpr std::chrono::seconds requestTime{
        10};  // for a request to arrive, and to be answered

    // Throws std::runtime_error when it cannot listen.
    RelayServer(SerialQueue& queue, Options options);
    // Tells the clients to come again later (close code 1012).
    ~RelayServer();
    RelayServer(const RelayServer&) = delete;
    RelayServer& operator=(const RelayServer&) = delete;

    std::uint16_t port() const;

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace orvel
