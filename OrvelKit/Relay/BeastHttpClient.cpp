#include <algorithm>
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
        parser.body_limit(HttpClient::maxBody);
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
        http::async_write(
            stream, request, [self = shared_from_this(), &stream](error_code error, std::size_t) {
                if (self->isOver()) return;
                if (error) return self->finish(std::nullopt);
                http::async_read(
                    stream, self->buffer, self->parser,
                    [self](error_code failure, std::size_t) { self->received(failure); });
            });
    }

    void received(error_code error) {
        if (isOver()) return;
        if (error) return finish(std::nullopt);
        auto& response = parser.get();
        finish(HttpResponse{static_cast<int>(response.result_int()), std::move(response.body())});
    }

    void finish(std::optional<HttpResponse> response) {
        const auto done = std::exchange(completion, nullptr);
        if (!done) return;
        drop();
        done(std::move(response));
    }

    SerialQueue& queue;
    const Network network;
    HttpRequest given;
    HttpClient::Completion completion;  // null: over
    Endpoint endpoint;
    Timer deadline;
    std::unique_ptr<Dial> dial;
    std::optional<asio::ssl::context> tls;
    std::optional<tcp::socket> plain;  // once connected, one of the two
    std::optional<TlsStream> secure;
    http::request<http::string_body> request;
    http::response_parser<http::string_body> parser;
    beast::flat_buffer buffer;
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
