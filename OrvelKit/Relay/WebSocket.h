#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/Network.h"
#include "OrvelKit/Relay/Url.h"

namespace orvel {

// One connection of a websocket client (RFC 6455), from its making on: what is sent before it is
// open waits. Belongs to the queue that it was made on; every call and callback is there.
// Destroying it drops the connection at once and without a callback, also from inside one.
class WebSocket {
public:
    struct Events {
        // A text or binary message. Text is UTF-8; it is not looked at otherwise.
        std::function<void(std::string message)> onMessage;
        // It could not be opened, failed, or was closed by the peer; `reason` is for a log. Nothing
        // comes after it, and it never comes inside a call of ours.
        std::function<void(std::string reason)> onEnd;
    };

    static constexpr std::chrono::seconds connectTime{20};    // resolve, connect, TLS
    static constexpr std::chrono::seconds handshakeTime{20};  // the websocket's own
    static constexpr std::chrono::seconds closeTime{2};
    // A longer message ends the connection. The hosted service lets broadcasts of 3,000 KB through.
    static constexpr std::size_t maxMessage = 4 << 20;
    // So does a peer that lets more than this wait to be sent.
    static constexpr std::size_t maxWaiting = 4 << 20;

    virtual ~WebSocket() = default;
    // A text message; `text` is UTF-8.
    virtual void send(std::string text) = 0;
    // Closes with a code that may be sent (RFC 6455, section 7.4); no callback comes afterwards.
    // The closing goes on for at most closeTime, even when this is destroyed.
    virtual void close(std::uint16_t code) = 0;
};

using WebSocketMaker =
    std::function<std::unique_ptr<WebSocket>(SerialQueue&, const Url&, WebSocket::Events)>;

// Sockets of the system. "ws" and "wss" addresses; others end at once.
WebSocketMaker systemWebSockets(Network network);

}  // namespace orvel
