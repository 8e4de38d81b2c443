#include <algorithm>
#include <array>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <list>

#include "OrvelKit/Base/QueueIo.h"
#include "OrvelKit/Relay/Dial.h"
#include "OrvelKit/Relay/HttpClient.h"

namespace orvel {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using TlsStream = asio::ssl::stream<tcp::socket>;

bool isFieldText(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// One request and its response.
class Exchange : public std::enable_shared_from_this<Exchange> {
public:
    Exchange(SerialQueue& exchangeQueue, Network exchangeNetwork, HttpRequest wanted,
             HttpClient::Completion exchangeCompletion)
        : queue(exchangeQueue),
          network(std::move(exchangeNetwork)),
          given(std::move(wanted)),
          completion(std::move(exchangeCompletion)) {
        parser.body_limit(given.maxBody);
    }

    void start() {
        const auto address = Endpoint::of(given.url, "http", "https");
        const bool usable =
            address && std::all_of(given.headers.begin(), given.headers.end(),
                                   [](const auto& header) { return isFieldText(header.second); });
        if (!usable) return finish(std::nullopt);
        endpoint = *address;

        request.version(11);
        request.method_string(given.method);
        request.target(endpoint.target);
        request.set(http::field::host, endpoint.authority);
        request.set(http::field::user_agent, "orvel");
        request.set(http::field::connection, "close");
        for (const auto& [name, value] : given.headers)
            request.set(name, value);
        request.body() = std::move(given.body);
        request.prepare_payload();

        // This is what keeps the exchange while its name is resolved.
        deadline =
            queue.after(given.timeout, [self = shared_from_this()] { self->finish(std::nullopt); });
        dial = std::make_unique<Dial>(queue, endpoint, network,
                                      [weak = weak_from_this()](error_code error, auto socket) {
                                          const auto self = weak.lock();
                                          if (!self || self->isOver()) return;
                                          self->dial.reset();
                                          if (error) return self->finish(std::nullopt);
                                          self->connected(std::move(socket));
                                      });
    }

    bool isOver() const { return !completion; }

    void drop() {
        completion = nullptr;
        deadline.cancel();
        silence.cancel();
        dial.reset();
        error_code ignored;
        if (plain) plain->close(ignored);
        if (secure) secure->lowest_layer().close(ignored);
    }

private:
    void connected(tcp::socket socket) {
        if (!endpoint.secure) {
            plain.emplace(std::move(socket));
            return exchange(*plain);
        }
        tls.emplace(tlsContext(network));
        secure.emplace(std::move(socket), *tls);
        expectHost(*secure, endpoint.host);
        secure->async_handshake(asio::ssl::stream_base::client,
                                [self = shared_from_this()](error_code error) {
                                    if (self->isOver()) return;
                                    if (error) return self->finish(std::nullopt);
                                    self->exchange(*self->secure);
                                });
    }

    template <class Stream>
    void exchange(Stream& stream) {
        expectBytes();
        http::async_write(
            stream, request, [self = shared_from_this(), &stream](error_code error, std::size_t) {
                if (self->isOver()) return;
                if (error) return self->finish(std::nullopt);
                http::async_read_header(stream, self->buffer, self->parser,
                                        [self, &stream](error_code failure, std::size_t) {
                                            if (self->isOver()) return;
                                            if (failure) return self->finish(std::nullopt);
                                            self->headerArrived(stream);
                                        });
            });
    }

    template <class Stream>
    void headerArrived(Stream& stream) {
        const auto& header = parser.get();
        response.status = static_cast<int>(header.result_int());
        const auto location = header[http::field::location];
        response.location.assign(location.data(), location.size());
        streams = given.onBody && response.status == 200;
        parser.eager(true);
        readBody(stream);
    }

    template <class Stream>
    void readBody(Stream& stream) {
        if (parser.is_done()) return finish(std::move(response));
        expectBytes();
        parser.get().body().data = piece.data();
        parser.get().body().size = piece.size();
        http::async_read_some(stream, buffer, parser,
                              [self = shared_from_this(), &stream](error_code error, std::size_t) {
                                  if (self->isOver()) return;
                                  if (error == http::error::need_buffer) error = {};
                                  if (error || !self->take()) return self->finish(std::nullopt);
                                  if (!self->isOver()) self->readBody(stream);
                              });
    }

    // What was read into `piece`; false when no more is wanted.
    bool take() {
        const std::string_view read(piece.data(), piece.size() - parser.get().body().size);
        if (read.empty()) return true;
        if (streams) return given.onBody(bytesOf(read));
        if (given.onBody && response.body.size() + read.size() > HttpRequest::usualMaxBody) {
            return false;
        }
        response.body += read;
        return true;
    }

    void expectBytes() {
        if (given.silence <= Duration::zero()) return;
        silence = queue.after(given.silence, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->finish(std::nullopt);
        });
    }

    void finish(std::optional<HttpResponse> outcome) {
        const auto done = std::exchange(completion, nullptr);
        if (!done) return;
        drop();
        done(std::move(outcome));
    }

    SerialQueue& queue;
    const Network network;
    HttpRequest given;
    HttpClient::Completion completion;  // null: over
    Endpoint endpoint;
    Timer deadline, silence;
    std::unique_ptr<Dial> dial;
    std::optional<asio::ssl::context> tls;
    std::optional<tcp::socket> plain;  // once connected, one of the two
    std::optional<TlsStream> secure;
    http::request<http::string_body> request;
    http::response_parser<http::buffer_body> parser;
    beast::flat_buffer buffer;
    std::array<char, 16 << 10> piece;  // as long as a TLS record
    bool streams = false;              // to given.onBody
    HttpResponse response;
};

class BeastHttpClient final : public HttpClient {
public:
    BeastHttpClient(SerialQueue& clientQueue, Network clientNetwork)
        : queue(clientQueue), network(std::move(clientNetwork)) {}
    ~BeastHttpClient() override {
        // Their handlers belong to the queue.
        queue.post([exchanges = exchanges] {
            for (const auto& exchange : *exchanges) {
                if (const auto running = exchange.lock()) running->drop();
            }
        });
    }

    void send(HttpRequest request, Completion completion) override {
        auto exchange =
            std::make_shared<Exchange>(queue, network, std::move(request), std::move(completion));
        queue.post([running = exchanges, exchange] {
            std::erase_if(*running, [](const auto& one) { return one.expired(); });
            running->push_back(exchange);
            exchange->start();
        });
    }

private:
    using Exchanges = std::list<std::weak_ptr<Exchange>>;
    SerialQueue& queue;
    const Network network;
    const std::shared_ptr<Exchanges> exchanges = std::make_shared<Exchanges>();  // of the queue
};

}  // namespace

std::unique_ptr<HttpClient> makeSystemHttpClient(SerialQueue& queue, Network network) {
    return std::make_unique<BeastHttpClient>(queue, std::move(network));
}

}  // namespace orvel
