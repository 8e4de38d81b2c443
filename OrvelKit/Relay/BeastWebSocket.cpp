#include <boost/asio/buffer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <deque>
#include <optional>

#include "OrvelKit/Base/QueueIo.h"
#include "OrvelKit/Relay/Dial.h"
#include "OrvelKit/Relay/WebSocket.h"

namespace orvel {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using TlsStream = asio::ssl::stream<tcp::socket>;

constexpr std::chrono::seconds watchTime{5};

// What the pending operations keep alive: a connection and its two directions.
//
//   opening -> open -> over; opening may go straight to over. Over, it may still be closing.
class Line : public std::enable_shared_from_this<Line> {
public:
    Line(SerialQueue& lineQueue, Endpoint lineEndpoint, Network lineNetwork,
         WebSocket::Events lineEvents)
        : queue(lineQueue),
          endpoint(std::move(lineEndpoint)),
          network(std::move(lineNetwork)),
          events(std::make_shared<WebSocket::Events>(std::move(lineEvents))) {}
    virtual ~Line() = default;

    void start() {
        limit(WebSocket::connectTime, "connecting takes too long");
        dial = std::make_unique<Dial>(queue, endpoint, network,
                                      [weak = weak_from_this()](error_code error, auto socket) {
                                          const auto self = weak.lock();
                                          if (!self || self->state == State::over) return;
                                          self->dial.reset();
                                          if (error) return self->fail(error.message());
                                          self->secure(std::move(socket));
                                      });
    }

    void send(std::string text) {
        if (state == State::over) return;
        waitingBytes += text.size();
        outgoing.push_back(std::move(text));
        if (waitingBytes > WebSocket::maxWaiting) return failLater("the peer takes nothing");
        if (state == State::open && outgoing.size() == 1) write();
    }

    void close(std::uint16_t code) {
        if (state != State::open) return drop();
        over();
        deadline = queue.after(WebSocket::closeTime, [self = shared_from_this()] { self->shut(); });
        closeStream(code);
    }

    void drop() {
        if (state == State::over) return;
        over();
        shut();
    }

    // Ends it from a later task: for what is found inside a call of the owner.
    void failLater(std::string reason) {
        queue.post([weak = weak_from_this(), reason = std::move(reason)] {
            if (const auto self = weak.lock()) self->fail(reason);
        });
    }

protected:
    virtual void secure(tcp::socket socket) = 0;       // TLS where wanted; goes on with upgrade()
    virtual void upgrade() = 0;                        // goes on with upgraded()
    virtual void read() = 0;                           // goes on with received()
    virtual void write() = 0;                          // outgoing's first; goes on with written()
    virtual void closeStream(std::uint16_t code) = 0;  // goes on with closed()
    virtual void shutStream() = 0;
    virtual bool isStreamOpen() const = 0;

    bool isOver() const { return state == State::over; }

    void secured() {
        limit(WebSocket::handshakeTime, "the handshake takes too long");
        upgrade();
    }

    void upgraded() {
        state = State::open;
        watch();
        if (!outgoing.empty()) write();
        read();
    }

    // A stream whose peer breaks the protocol, or says goodbye, waits for it to close: without this
    // for as long as it likes.
    void watch() {
        deadline = queue.after(watchTime, [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self) return;
            if (!self->isStreamOpen()) return self->fail("the peer does not close");
            self->watch();
        });
    }

    void received(std::string message) {
        const auto held = events;  // the call may end this
        if (held->onMessage) held->onMessage(std::move(message));
        if (!isOver()) read();
    }

    void written() {
        waitingBytes -= outgoing.front().size();
        outgoing.pop_front();
        if (!outgoing.empty()) write();
    }

    void closed() {
        deadline.cancel();
        shut();
    }

    void fail(const std::string& reason) {
        if (isOver()) return;
        const auto held = events;
        drop();
        if (held->onEnd) held->onEnd(reason);
    }

    const std::string& front() const { return outgoing.front(); }

    SerialQueue& queue;
    const Endpoint endpoint;
    const Network network;

private:
    void limit(Duration time, const char* reason) {
        deadline = queue.after(time, [weak = weak_from_this(), reason] {
            if (const auto self = weak.lock()) self->fail(reason);
        });
    }

    void over() {
        state = State::over;
        events.reset();
        deadline.cancel();
    }

    void shut() {
        dial.reset();
        shutStream();
    }

    enum class State { opening, open, over } state = State::opening;
    std::shared_ptr<WebSocket::Events> events;
    std::unique_ptr<Dial> dial;
    std::deque<std::string> outgoing;  // the first is being written once open
    std::size_t waitingBytes = 0;      // in outgoing
    Timer deadline;
};

template <class Stream>
class LineOver final : public Line {
public:
    using Line::Line;

private:
    static constexpr bool isSecure = std::is_same_v<Stream, TlsStream>;
    static constexpr std::size_t keptBuffer = 64 << 10;

    std::shared_ptr<LineOver> self() {
        return std::static_pointer_cast<LineOver>(shared_from_this());
    }

    void secure(tcp::socket socket) override {
        if constexpr (isSecure) {
            tls.emplace(tlsContext(network));
            stream.emplace(std::move(socket), *tls);
            expectHost(stream->next_layer(), endpoint.host);
            stream->next_layer().async_handshake(
                asio::ssl::stream_base::client, [self = self()](error_code error) {
                    if (self->isOver()) return;
                    if (error) return self->fail(tlsFailure(self->stream->next_layer(), error));
                    self->secured();
                });
        } else {
            stream.emplace(std::move(socket));
            secured();
        }
    }

    void upgrade() override {
        // The queue keeps the time.
        stream->set_option(websocket::stream_base::timeout{websocket::stream_base::none(),
                                                           websocket::stream_base::none(), false});
        stream->set_option(websocket::stream_base::decorator([](websocket::request_type& request) {
            request.set(beast::http::field::user_agent, "orvel");
        }));
        stream->read_message_max(WebSocket::maxMessage);
        stream->text(true);
        stream->async_handshake(
            answer, endpoint.authority, endpoint.target, [self = self()](error_code error) {
                if (self->isOver()) return;
                if (error == websocket::error::upgrade_declined) {
                    return self->fail("refused with status " +
                                      std::to_string(self->answer.result_int()));
                }
                if (error) return self->fail(error.message());
                self->answer = {};
                self->upgraded();
            });
    }

    void read() override {
        stream->async_read(incoming, [self = self()](error_code error, std::size_t) {
            if (self->isOver()) return;
            if (error == websocket::error::closed) {
                return self->fail("closed with code " +
                                  std::to_string(self->stream->reason().code));
            }
            if (error) return self->fail(error.message());
            auto message = beast::buffers_to_string(self->incoming.data());
            self->incoming.clear();
            if (self->incoming.capacity() > keptBuffer) self->incoming.shrink_to_fit();
            self->received(std::move(message));
        });
    }

    void write() override {
        stream->async_write(asio::buffer(front()), [self = self()](error_code error, std::size_t) {
            if (self->isOver()) return;
            if (error) return self->fail(error.message());
            self->written();
        });
    }

    void closeStream(std::uint16_t code) override {
        stream->async_close(websocket::close_reason(code),
                            [self = self()](error_code) { self->closed(); });
    }

    void shutStream() override {
        error_code ignored;
        if (stream) beast::get_lowest_layer(*stream).close(ignored);
    }

    bool isStreamOpen() const override { return stream->is_open(); }

    std::optional<asio::ssl::context> tls;
    std::optional<websocket::stream<Stream>> stream;  // once connected
    websocket::response_type answer;
    beast::flat_buffer incoming;
};

class BeastWebSocket final : public WebSocket {
public:
    BeastWebSocket(SerialQueue& queue, const Url& url, const Network& network, Events events) {
        queue.assertCurrent();
        const auto endpoint = Endpoint::of(url, "ws", "wss");
        if (!endpoint || !endpoint->secure) {
            line = std::make_shared<LineOver<tcp::socket>>(queue, endpoint.value_or(Endpoint{}),
                                                           network, std::move(events));
        } else {
            line =
                std::make_shared<LineOver<TlsStream>>(queue, *endpoint, network, std::move(events));
        }
        if (endpoint) {
            line->start();
        } else {
            line->failLater("no websocket address");
        }
    }
    ~BeastWebSocket() override { line->drop(); }

    void send(std::string text) override { line->send(std::move(text)); }
    void close(std::uint16_t code) override { line->close(code); }

private:
    std::shared_ptr<Line> line;
};

}  // namespace

WebSocketMaker systemWebSockets(Network network) {
    return [network = std::move(network)](SerialQueue& queue, const Url& url,
                                          WebSocket::Events events) -> std::unique_ptr<WebSocket> {
        return std::make_unique<BeastWebSocket>(queue, url, network, std::move(events));
    };
}

}  // namespace orvel
