#include "Relay/RealtimeConnection.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>

#include "Relay/RelayServer.h"

namespace orvel {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds closeTime{2};
constexpr std::size_t keptBuffer = 64 << 10;

}  // namespace

RealtimeConnection::RealtimeConnection(SerialQueue& connectionQueue, asio::ip::tcp::socket socket,
                                       RealtimeHub& realtimeHub,
                                       RealtimeHub::Serializer clientSerializer,
                                       std::chrono::seconds idleLimit, Ended ended)
    : queue(connectionQueue),
      stream(std::move(socket)),
      hub(realtimeHub),
      serializer(clientSerializer),
      idleTime(idleLimit),
      onEnd(std::move(ended)) {}

void RealtimeConnection::start(const beast::http::request<beast::http::string_body>& request) {
    stream.set_option(
        websocket::stream_base::timeout{closeTime, websocket::stream_base::none(), false});
    stream.read_message_max(RelayServer::maxFrame);
    stream.text(true);
    // A ping is a sign of life, too.
    stream.control_callback(
        [this](websocket::frame_type, beast::string_view) { lastArrival = queue.now(); });
    stream.async_accept(request, [self = shared_from_this()](error_code error) {
        if (self->isOver) return;
        if (error) return self->end();
        self->isOpen = true;
        self->lastArrival = self->queue.now();
        self->hub.came(self, self->serializer);
        self->watch();
        self->read();
    });
}

void RealtimeConnection::watch() {
    const Duration left = lastArrival + idleTime - queue.now();
    if (left <= Duration::zero()) return finish(websocket::close_code::normal);
    idle = queue.after(left, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->watch();
    });
}

void RealtimeConnection::read() {
    stream.async_read(incoming, [self = shared_from_this()](error_code error, std::size_t) {
        if (self->isOver) return;
        if (error) return self->end();
        self->lastArrival = self->queue.now();
        const auto text = beast::buffers_to_string(self->incoming.data());
        self->incoming.clear();
        if (self->incoming.capacity() > keptBuffer) self->incoming.shrink_to_fit();
        self->hub.received(*self, text, self->stream.got_binary());
        if (!self->isOver) self->read();
    });
}

void RealtimeConnection::send(const std::string& text) {
    if (isOver) return;
    waitingBytes += text.size();
    outgoing.push_back(text);
    if (waitingBytes > RelayServer::maxWaiting) {
        // Not now: the hub is in the middle of something.
        queue.post([weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->end();
        });
    } else if (outgoing.size() == 1) {
        write();
    }
}

void RealtimeConnection::write() {
    stream.async_write(asio::buffer(outgoing.front()),
                       [self = shared_from_this()](error_code error, std::size_t) {
                           if (self->isOver) return;
                           if (error) return self->end();
                           self->waitingBytes -= self->outgoing.front().size();
                           self->outgoing.pop_front();
                           if (!self->outgoing.empty()) self->write();
                       });
}

// Ours to say goodbye; the owner is told at once.
void RealtimeConnection::finish(std::uint16_t code) {
    const auto self = shared_from_this();
    const auto ended = onEnd;
    close(code);
    if (ended) ended(self);
}

void RealtimeConnection::close(std::uint16_t code) {
    if (isOver) return;
    const bool wasOpen = isOpen;
    drop();
    error_code ignored;
    if (!wasOpen) {
        stream.next_layer().close(ignored);
        return;
    }
    closing = queue.after(closeTime, [self = shared_from_this()] {
        error_code unused;
        self->stream.next_layer().close(unused);
    });
    stream.async_close(websocket::close_reason(code), [self = shared_from_this()](error_code) {
        error_code unused;
        self->closing.cancel();
        self->stream.next_layer().close(unused);
    });
}

void RealtimeConnection::end() {
    if (isOver) return;
    const auto self = shared_from_this();
    const auto ended = onEnd;
    drop();
    error_code ignored;
    stream.next_layer().close(ignored);
    if (ended) ended(self);
}

void RealtimeConnection::drop() {
    isOver = true;
    idle.cancel();
    onEnd = nullptr;
    if (isOpen) hub.left(*this);
}

}  // namespace orvel
