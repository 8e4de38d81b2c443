#include "OrvelAgent/Doctor/RelayCheck.h"

#include <algorithm>
#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <utility>

#include "OrvelKit/Base/QueueIo.h"
#include "OrvelKit/Relay/Dial.h"
#include "OrvelKit/Relay/RealtimeMessage.h"
#include "OrvelKit/Relay/WebSocket.h"

namespace orvel {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using Level = Finding::Level;

constexpr int unauthorized = 401, forbidden = 403, serverError = 500;

// One request, step by step: HttpClient would not say at which step it failed. On the queue, but
// for making it.
class RelayRequest : public std::enable_shared_from_this<RelayRequest> {
public:
    // `facts` outlives it until stop().
    RelayRequest(SerialQueue& requestQueue, const Network& requestNetwork, RelayFacts& resulting,
                 std::function<void()> whenOver)
        : queue(requestQueue),
          network(requestNetwork),
          facts(resulting),
          onOver(std::move(whenOver)) {}

    void start(const Endpoint& given, http::request<http::string_body> prepared) {
        endpoint = given;
        request = std::move(prepared);
        request.version(11);
        request.target(endpoint.target);
        request.set(http::field::host, endpoint.authority);
        request.set(http::field::user_agent, "orvel");
        request.set(http::field::connection, "close");
        request.prepare_payload();
        dial = std::make_unique<Dial>(queue, endpoint, network,
                                      [weak = weak_from_this()](error_code error, auto socket) {
                                          if (const auto self = weak.lock())
                                              self->connected(error, std::move(socket));
                                      });
    }

    void stop() {
        isOver = true;
        dial.reset();
        error_code ignored;
        if (stream) stream->lowest_layer().close(ignored);
    }

private:
    void connected(error_code error, tcp::socket socket) {
        if (isOver) return;
        dial.reset();
        if (error) {
            const bool isName = error.category() == asio::error::get_netdb_category() ||
                                error.category() == asio::error::get_addrinfo_category();
            (isName ? facts.nameProblem : facts.reachProblem) = error.message();
            return end();
        }
        // Of a plain connection only the lower layer is used.
        stream.emplace(std::move(socket), context.emplace(tlsContext(network)));
        if (!endpoint.secure) return exchange(stream->next_layer());
        expectHost(*stream, endpoint.host);
        stream->async_handshake(asio::ssl::stream_base::client,
                                [self = shared_from_this()](error_code failure) {
                                    if (self->isOver) return;
                                    if (!failure) return self->exchange(*self->stream);
                                    self->facts.reachProblem = tlsFailure(*self->stream, failure);
                                    self->end();
                                });
    }

    template <class Stream>
    void exchange(Stream& layer) {
        http::async_write(layer, request,
                          [self = shared_from_this(), &layer](error_code error, std::size_t) {
                              if (self->isOver) return;
                              if (error) return self->fail(error);
                              http::async_read_header(layer, self->buffer, self->parser,
                                                      [self](error_code failure, std::size_t) {
                                                          if (self->isOver) return;
                                                          if (failure) return self->fail(failure);
                                                          self->received();
                                                      });
                          });
    }

    void received() {
        const auto& response = parser.get();
        facts.accountStatus = static_cast<int>(response.result_int());
        facts.itsTime = parseHttpDate(std::string(response[http::field::date]));
        facts.ourTime = queue.wallTime();
        end();
    }

    void fail(error_code error) {
        facts.reachProblem = error.message();
        end();
    }

    void end() {
        stop();
        onOver();
    }

    SerialQueue& queue;
    const Network network;
    RelayFacts& facts;
    const std::function<void()> onOver;
    Endpoint endpoint;
    http::request<http::string_body> request;
    std::unique_ptr<Dial> dial;
    std::optional<asio::ssl::context> context;
    std::optional<asio::ssl::stream<tcp::socket>> stream;
    beast::flat_buffer buffer;
    http::response_parser<http::empty_body> parser;
    bool isOver = false;
};

// All of one look at the relay; on the queue, but for making it.
class RelayProbe : public std::enable_shared_from_this<RelayProbe> {
public:
    RelayProbe(SerialQueue& probeQueue, Network probeNetwork, std::function<void()> whenComplete)
        : queue(probeQueue),
          network(std::move(probeNetwork)),
          completion(std::move(whenComplete)) {}

    void start(const RelayConfig& config, const std::optional<RelayProject>& project) {
        queue.assertCurrent();
        facts.isConfigured = true;
        facts.host = config.url.host();
        askAccounts(config, project);
        openWebSocket(config);
    }

    RelayFacts stop() {
        queue.assertCurrent();
        completion = nullptr;
        socket.reset();
        if (request) request->stop();
        if (!hasSpoken && !facts.speaks) facts.websocketProblem = "no answer in time";
        return facts;
    }

private:
    void askAccounts(const RelayConfig& config, const std::optional<RelayProject>& project)
        RUNS_ON(queue) {
        http::request<http::string_body> question(http::verb::get, "/", 11);
        // A relay for signaling alone has no accounts; that it answers is enough.
        std::optional<Url> url = config.url.withPath("/");
        if (project) {
            url = Url::parse(project->baseUrl.text() + "/auth/v1/token?grant_type=refresh_token");
            question.method(http::verb::post);
            question.set("apikey", project->anonymousKey);
            question.set(http::field::content_type, "application/json");
            question.body() = R"({"refresh_token":""})";
        }
        auto endpoint = url ? Endpoint::of(*url, "http", "https") : std::nullopt;
        if (!endpoint && url) endpoint = Endpoint::of(*url, "ws", "wss");
        if (!endpoint) {
            facts.reachProblem = "its address leads nowhere";
            hasAsked = true;
            return;
        }
        request = std::make_shared<RelayRequest>(queue, network, facts, [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            self->hasAsked = true;
            self->lookWhetherComplete();
        });
        request->start(*endpoint, std::move(question));
    }

    void openWebSocket(const RelayConfig& config) RUNS_ON(queue) {
        const auto ended = [weak = weak_from_this()](const std::string& problem) {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            if (std::exchange(self->hasSpoken, true)) return;
            self->facts.speaks = problem.empty();
            self->facts.websocketProblem = problem;
            self->lookWhetherComplete();
        };
        socket = systemWebSockets(network)(
            queue, config.url.withQuery({{"apikey", config.apiKey}, {"vsn", "1.0.0"}}),
            {[ended](const std::string&) { ended(""); },
             [ended](const std::string& reason) { ended(reason.empty() ? "closed" : reason); }});
        socket->send(RealtimeMessage::heartbeat(1));
    }

    void lookWhetherComplete() RUNS_ON(queue) {
        if (!hasAsked || !hasSpoken || !completion) return;
        std::exchange(completion, nullptr)();
    }

    SerialQueue& queue;
    const Network network;
    std::function<void()> completion OWNED_BY(queue);  // null: over
    std::unique_ptr<WebSocket> socket OWNED_BY(queue);
    std::shared_ptr<RelayRequest> request OWNED_BY(queue);
    RelayFacts facts OWNED_BY(queue);
    bool hasAsked OWNED_BY(queue) = false, hasSpoken OWNED_BY(queue) = false;
};

Finding relay(Level level, std::string text, std::string advice = {}) {
    return {level, "relay", std::move(text), std::move(advice)};
}

}  // namespace

void probeRelay(const OrvelCloud& cloud, const Network& network, Duration limit,
                const std::function<void(const RelayFacts&)>& completion) {
    const auto config = cloud.relay();
    if (!config) return completion({});
    SerialQueue queue("orvel.doctor");
    std::promise<void> complete;
    const auto probe =
        std::make_shared<RelayProbe>(queue, network, [&complete] { complete.set_value(); });
    queue.post([&, project = cloud.project()] { probe->start(*config, project); });
    complete.get_future().wait_for(limit);
    std::promise<RelayFacts> facts;
    queue.post([&] { facts.set_value(probe->stop()); });
    completion(facts.get_future().get());
}

std::vector<Finding> relayFindings(const RelayFacts& facts, const RelayUse& use) {
    if (!facts.isConfigured) {
        return {relay(Level::ok, "not configured: phones connect on the local network only")};
    }
    const std::string host = facts.host;
    const auto status = facts.accountStatus;
    const auto usable = [&](std::string text, std::string advice) {
        // Who does not want it need not care.
        return std::vector{
            relay(use.isOff ? Level::warning : Level::problem, std::move(text), std::move(advice))};
    };
    if (!facts.nameProblem.empty()) {
        return usable("the name " + host + " has no address: " + facts.nameProblem,
                      "Look whether this computer has a way to the internet and a name server.");
    }
    if (status == unauthorized || status == forbidden) {
        return usable(host + " does not accept the key",
                      "Correct ORVEL_PROJECT_KEY, or the user default \"relayKey\".");
    }
    if (!facts.reachProblem.empty()) {
        const bool isCertificate = facts.reachProblem.find("certificate") != std::string::npos;
        return usable(
            host + " cannot be reached: " + facts.reachProblem,
            isCertificate
                ? "Look at this computer's date, and whether ca-certificates is installed."
                : "Look whether this computer is on the internet, and whether a firewall "
                  "stands between.");
    }
    if (!facts.speaks) {
        return usable(
            host + " lets no websocket through: " + facts.websocketProblem,
            "Look whether a proxy or a firewall stands between; websockets have to pass.");
    }
    std::vector<Finding> findings;
    if (!status || *status >= serverError) {
        findings.push_back(relay(Level::warning, host + " has trouble with accounts",
                                 "Phones connect, but not from behind every router. It is the "
                                 "relay's to mend; try again later."));
    }
    if (use.agentIsOnline == false && !use.isOff) {
        findings.push_back(
            relay(Level::warning, host + " answers, but the agent is not on it",
                  "If it stays so for a minute: orvel-agent quit, and start the agent again."));
    }
    if (findings.empty()) {
        findings.push_back(relay(Level::ok, host + " answers: name, key and websocket are good" +
                                                (use.isOff ? " (remote access is off)" : "")));
    }
    return findings;
}

std::vector<Finding> clockFindings(const RelayFacts& facts) {
    if (!facts.itsTime) {
        const bool matters = facts.isConfigured && facts.accountStatus;
        return {{Level::ok, "clock",
                 matters ? "not compared: the relay does not say what time it is"
                         : "not compared: no relay answers",
                 ""}};
    }
    using std::chrono::seconds;
    const auto ahead = std::chrono::duration_cast<seconds>(facts.ourTime - *facts.itsTime);
    const auto off = seconds(std::abs(ahead.count()));
    const std::string text = std::to_string(off.count()) + " s " +
                             (ahead.count() > 0 ? "ahead of" : "behind") + " the relay's";
    const std::string advice = "Let the network set it: sudo timedatectl set-ntp true";
    constexpr seconds envelopeAge{120}, worthKnowing{30};
    if (off >= envelopeAge) {
        return {
            {Level::problem, "clock", text + ": phones are not heard over the internet", advice}};
    }
    if (off >= worthKnowing) return {{Level::warning, "clock", text, advice}};
    return {{Level::ok, "clock", "agrees with the relay's", ""}};
}

std::optional<WallTime> parseHttpDate(const std::string& text) {
    static constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char month[4] = {};
    unsigned day = 0, hour = 0, minute = 0, second = 0;
    int year = 0, length = 0;
    if (std::sscanf(text.c_str(), "%*3s, %2u %3s %4d %2u:%2u:%2u GMT%n", &day, month, &year, &hour,
                    &minute, &second, &length) != 6 ||
        length != static_cast<int>(text.size())) {
        return std::nullopt;
    }
    const auto found = std::find(months.begin(), months.end(), std::string_view(month));
    const std::chrono::year_month_day date{
        std::chrono::year(year),
        std::chrono::month(static_cast<unsigned>(found - months.begin()) + 1),
        std::chrono::day(day)};
    if (!date.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;
    return std::chrono::sys_days(date) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
           std::chrono::seconds(second);
}

}  // namespace orvel
