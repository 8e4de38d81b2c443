#include "Relay/RelayServer.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/url/parse.hpp>
#include <cstdio>
#include <ctime>
#include <set>
#include <stdexcept>

#include "OrvelKit/Base/QueueIo.h"
#include "OrvelKit/Secure/Crypto.h"
#include "Relay/RealtimeConnection.h"

namespace orvel {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

namespace {

bool isKey(std::string_view given, const std::string& key) {
    return equalInConstantTime(bytesOf(given), bytesOf(key));
}

std::string_view viewOf(beast::string_view text) {
    return {text.data(), text.size()};
}

std::string queryItem(const Request& request, const char* name) {
    const auto url = boost::urls::parse_origin_form(request.target());
    if (!url) return {};
    for (const auto& item : url->params()) {
        if (item.key == name) return item.value;
    }
    return {};
}

// RFC 9110, section 5.6.7; the process keeps the "C" locale.
std::string httpDate(WallTime time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[64];
    return {text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc)};
}

}  // namespace

struct RelayServer::State : std::enable_shared_from_this<State> {
    State(SerialQueue& stateQueue, Options stateOptions)
        : queue(stateQueue),
          options(std::move(stateOptions)),
          acceptor(ioContext(stateQueue)),
          accounts(stateQueue, options.accounts),
          hub(stateQueue, options.realtime,
              [this](const std::string& token) { return acceptsToken(token); }) {}

    SerialQueue& queue;
    const Options options;
    tcp::acceptor acceptor;
    RelayAccounts accounts;
    RealtimeHub hub;
    std::set<std::shared_ptr<RealtimeConnection>> websockets;
    std::size_t open = 0;  // connections of either kind
    Timer pause;

    // A request and its answer; owns its socket until a websocket takes it.
    struct Exchange {
        explicit Exchange(tcp::socket connected) : socket(std::move(connected)) {
            parser.body_limit(maxBody);
        }
        tcp::socket socket;
        beast::flat_buffer buffer;
        http::request_parser<http::string_body> parser;
        Response response;
        Timer deadline;
        std::string address;
    };

    void listen() {
        error_code error;
        const auto address = asio::ip::make_address(options.address, error);
        if (error) throw std::runtime_error("no address to listen at: " + options.address);
        const tcp::endpoint endpoint(address, options.port);
        const auto must = [](error_code failure) {
            if (failure) throw std::runtime_error("cannot listen: " + failure.message());
        };
        must(acceptor.open(endpoint.protocol(), error));
        acceptor.set_option(tcp::acceptor::reuse_address(true), error);
        if (address.is_v6()) acceptor.set_option(asio::ip::v6_only(false), error);
        must(acceptor.bind(endpoint, error));
        must(acceptor.listen(asio::socket_base::max_listen_connections, error));
        accept();
    }

    void accept() {
        acceptor.async_accept([self = shared_from_this()](error_code error, tcp::socket socket) {
            if (error == asio::error::operation_aborted) return;
            if (error) {  // no descriptors, mostly
                self->pause =
                    self->queue.after(std::chrono::seconds(1), [weak = self->weak_from_this()] {
                        if (const auto again = weak.lock()) again->accept();
                    });
                return;
            }
            if (self->open < self->options.maxConnections) self->begin(std::move(socket));
            self->accept();
        });
    }

    void begin(tcp::socket socket) {
        // Counts itself while it lives, as whatever it becomes.
        ++open;
        auto exchange = std::shared_ptr<Exchange>(new Exchange(std::move(socket)),
                                                  [weak = weak_from_this()](Exchange* ended) {
                                                      delete ended;
                                                      if (const auto self = weak.lock())
                                                          --self->open;
                                                  });
        error_code ignored;
        exchange->address = exchange->socket.remote_endpoint(ignored).address().to_string();
        limit(exchange);
        http::async_read(exchange->socket, exchange->buffer, exchange->parser,
                         [self = shared_from_this(), exchange](error_code error, std::size_t) {
                             exchange->deadline.cancel();
                             if (!error) self->handle(exchange);
                         });
    }

    void limit(const std::shared_ptr<Exchange>& exchange) {
        exchange->deadline = queue.after(requestTime, [weak = std::weak_ptr(exchange)] {
            error_code ignored;
            if (const auto late = weak.lock()) late->socket.close(ignored);
        });
    }

    bool acceptsToken(const std::string& token) const {
        return isKey(token, options.key) || token.starts_with("sb_") ||
               accounts.userOf(token).has_value();
    }

    void handle(const std::shared_ptr<Exchange>& exchange) {
        const Request& request = exchange->parser.get();
        const std::string target(request.target());
        const auto path = target.substr(0, target.find('?'));
        if (path == "/realtime/v1/websocket") return handleWebsocket(exchange);
        if (path == "/") {
            return answer(exchange, http::status::ok, R"({"name":"orvel-relay"})");
        }
        const bool isFunction = path == "/functions/v1/tarno-turn";
        if (!isFunction && path != "/auth/v1/signup" && path != "/auth/v1/token") {
            return answer(exchange, http::status::not_found, R"({"message":"not found"})");
        }
        if (request.method() == http::verb::options) {  // a browser asks before the page may
            return answer(exchange, http::status::ok, "ok");
        }
        if (request.method() != http::verb::post) {
            return answer(exchange, http::status::method_not_allowed,
                          R"({"message":"only POST is served"})");
        }
        if (!isKey(viewOf(request["apikey"]), options.key)) {
            return answer(exchange, http::status::unauthorized,
                          request["apikey"].empty() ? R"({"message":"No API key found in request"})"
                                                    : R"({"message":"Invalid API key"})");
        }
        if (isFunction) return handleFunction(exchange);
        if (path == "/auth/v1/signup") {
            return answer(exchange, accounts.signUp(exchange->address, request.body()));
        }
        if (queryItem(request, "grant_type") != "refresh_token") {
            return answer(
                exchange, http::status::bad_request,
                R"({"code":400,"error_code":"validation_failed","msg":"unsupported_grant_type"})");
        }
        answer(exchange, accounts.refresh(request.body()));
    }

    void handleFunction(const std::shared_ptr<Exchange>& exchange) {
        const std::string header(exchange->parser.get()[http::field::authorization]);
        constexpr std::string_view scheme = "Bearer ";
        if (header.empty()) {
            return answer(exchange, http::status::unauthorized,
                          R"({"code":401,"message":"Missing authorization header"})");
        }
        const auto user = header.starts_with(scheme) ? accounts.userOf(header.substr(scheme.size()))
                                                     : std::nullopt;
        if (!user) {
            return answer(exchange, http::status::unauthorized,
                          R"({"code":401,"message":"Invalid JWT"})");
        }
        answer(exchange, http::status::ok, options.ice.answer(*user, queue.wallTime()));
    }

    void handleWebsocket(const std::shared_ptr<Exchange>& exchange) {
        const Request& request = exchange->parser.get();
        if (!beast::websocket::is_upgrade(request)) {
            return answer(exchange, http::status::upgrade_required,
                          R"({"error":"websockets only"})");
        }
        const auto version = queryItem(request, "vsn");
        const bool isArrays = version == "2.0.0";
        if (!isArrays && !version.empty() && version != "1.0.0") {
            return refuse(exchange, http::status::forbidden, "");
        }
        if (!isKey(queryItem(request, "apikey"), options.key)) {
            return refuse(exchange, http::status::unauthorized, R"({"error":"invalid API key"})");
        }
        auto connection = std::make_shared<RealtimeConnection>(
            queue, std::move(exchange->socket), hub,
            isArrays ? RealtimeHub::Serializer::arrays : RealtimeHub::Serializer::objects,
            options.idleTime,
            // What counts the connection goes with it.
            [weak = weak_from_this(), exchange](const auto& ended) {
                if (const auto self = weak.lock()) self->websockets.erase(ended);
            });
        websockets.insert(connection);
        connection->start(request);
    }

    void refuse(const std::shared_ptr<Exchange>& exchange, http::status status, std::string body) {
        exchange->deadline =
            queue.after(options.refusalDelay, [weak = weak_from_this(), exchange, status, body] {
                if (const auto self = weak.lock()) self->answer(exchange, status, body);
            });
    }

    void answer(const std::shared_ptr<Exchange>& exchange, const RelayAccounts::Reply& reply) {
        answer(exchange, static_cast<http::status>(reply.status), reply.body);
    }

    void answer(const std::shared_ptr<Exchange>& exchange, http::status status, std::string body) {
        exchange->response = Response(status, 11);
        exchange->response.set(http::field::content_type, "application/json");
        exchange->response.set(http::field::date, httpDate(queue.wallTime()));
        exchange->response.set(http::field::access_control_allow_origin, "*");
        exchange->response.set(http::field::access_control_allow_headers,
                               "authorization, apikey, content-type, x-client-info");
        exchange->response.set(http::field::access_control_allow_methods, "POST");
        exchange->response.keep_alive(false);
        exchange->response.body() = std::move(body);
        exchange->response.prepare_payload();
        limit(exchange);
        http::async_write(exchange->socket, exchange->response,
                          [exchange](error_code, std::size_t) {
                              error_code ignored;
                              exchange->socket.shutdown(tcp::socket::shutdown_send, ignored);
                          });
    }
};

RelayServer::RelayServer(SerialQueue& queue, Options options)
    : state(std::make_shared<State>(queue, std::move(options))) {
    state->listen();
}

RelayServer::~RelayServer() {
    error_code ignored;
    state->acceptor.close(ignored);
    for (const auto& websocket : std::exchange(state->websockets, {}))
        websocket->close(1012);
}

std::uint16_t RelayServer::port() const {
    error_code ignored;
    return state->acceptor.local_endpoint(ignored).port();
}

}  // namespace orvel
