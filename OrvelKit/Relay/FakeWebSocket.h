#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Relay/WebSocket.h"

namespace orvel {

// Websockets without a network, for one test: what was made, sent and closed, and a peer that says
// what the test wants. Used on the test's thread.
class FakeWebSockets {
public:
    struct Peer {
        std::string url;
        std::vector<std::string> sent;
        std::optional<std::uint16_t> closeCode;
        bool isGone = false;  // closed or dropped
        WebSocket::Events events;
    };
    std::vector<std::shared_ptr<Peer>> made;
    Peer& last() { return *made.back(); }

    WebSocketMaker maker() {
        return [this](SerialQueue&, const Url& url, WebSocket::Events events) {
            made.push_back(std::make_shared<Peer>(
                Peer{url.text(), {}, std::nullopt, false, std::move(events)}));
            return std::make_unique<Socket>(made.back());
        };
    }

private:
    struct Socket final : WebSocket {
        explicit Socket(std::shared_ptr<Peer> socketPeer) : peer(std::move(socketPeer)) {}
        ~Socket() override { peer->isGone = true; }
        void send(std::string text) override { peer->sent.push_back(std::move(text)); }
        void close(std::uint16_t code) override {
            peer->closeCode = code;
            peer->isGone = true;
        }
        const std::shared_ptr<Peer> peer;
    };
};

}  // namespace orvel
