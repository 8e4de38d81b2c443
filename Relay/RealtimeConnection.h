#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"
#include "Relay/RealtimeHub.h"

namespace orvel {

// A client's websocket on the hub. Belongs to the queue. Included only by the server: Boost stays
// out of everything else.
class RealtimeConnection final : public RealtimeHub::Client,
                                 public std::enable_shared_from_this<RealtimeConnection> {
public:
    using Ended = std::function<void(const std::shared_ptr<RealtimeConnection>&)>;

    RealtimeConnection(SerialQueue& queue, boost::asio::ip::tcp::socket socket, RealtimeHub& hub,
                       RealtimeHub::Serializer serializer, std::chrono::seconds idleTime,
                       Ended onEnd);

    // Answers the request, then serves; the owner keeps it until onEnd.
    void start(const boost::beast::http::request<boost::beast::http::string_body>& request);
    void send(const std::string& text) override;
    // Without onEnd.
    void close(std::uint16_t code);

private:
    void read();
    void write();
    void end();
    void drop();
    void finish(std::uint16_t code);
    void watch();

    SerialQueue& queue;
    boost::beast::websocket::stream<boost::asio::ip::tcp::socket> stream;
    RealtimeHub& hub;
    const RealtimeHub::Serializer serializer;
    const std::chrono::seconds idleTime;
    Ended onEnd;
    bool isOpen = false, isOver = false;
    MonotonicTime lastArrival;
    Timer idle, closing;
    boost::beast::flat_buffer incoming;
    std::deque<std::string> outgoing;  // the first is being written
    std::size_t waitingBytes = 0;
};

}  // namespace orvel
