#include <gtest/gtest.h>

#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include "OrvelKit/Relay/HttpClient.h"
#include "OrvelKit/Relay/Inbox.h"
#include "OrvelKit/Relay/TestServer.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using Response = std::optional<HttpResponse>;

struct BeastHttpClientTest : testing::Test {
    SerialQueue queue{"orvel.account"};
    std::unique_ptr<HttpClient> client = makeSystemHttpClient(queue, {});
    Inbox<Response> responses;

    void ask(HttpRequest request) {
        client->send(std::move(request), [this](Response response) {
            EXPECT_TRUE(queue.isCurrent());
            responses.put(std::move(response));
        });
    }
    // "200 body", "302 to location", or "nothing".
    std::string answer() {
        const auto response = responses.take(30s).value();
        if (!response) return "nothing";
        const auto to = response->location.empty() ? "" : "to " + response->location;
        return std::to_string(response->status) + " " + response->body + to;
    }
    static HttpRequest to(const std::string& url, Duration timeout = 10s) {
        return {"POST", Url::parse(url).value(), {}, {}, timeout};
    }
};

// Reads the header and a body of the length given, answers, and closes.
TestServer::Play answering(const std::string& text, Inbox<std::string>* requests = nullptr,
                           std::size_t bodyLength = 0) {
    return [=](tcp::socket& connection) {
        std::string request;
        const auto header = asio::read_until(connection, asio::dynamic_buffer(request), "\r\n\r\n");
        const auto have = request.size() - header;
        if (have < bodyLength) {
            asio::read(connection, asio::dynamic_buffer(request),
                       asio::transfer_exactly(bodyLength - have));
        }
        if (requests) requests->put(request);
        asio::write(connection, asio::buffer(text));
    };
}

TEST_F(BeastHttpClientTest, asksAsItIsTold) {
    Inbox<std::string> requests;
    TestServer server(answering("HTTP/1.1 401 No\r\nContent-Length: 2\r\n\r\n{}", &requests, 9));
    auto request = to("http://" + server.address() + "/auth/v1/token?grant_type=refresh_token");
    request.headers = {{"apikey", "key"}, {"Content-Type", "application/json"}};
    request.body = R"({"a":"ç"})" + std::string();
    request.body.resize(9);
    ask(std::move(request));
    EXPECT_EQ(answer(), "401 {}");
    const auto seen = requests.take().value();
    EXPECT_TRUE(seen.starts_with("POST /auth/v1/token?grant_type=refresh_token HTTP/1.1\r\n"));
    for (const auto& line : {"Host: " + server.address(), std::string("apikey: key"),
                             std::string("Content-Type: application/json"),
                             std::string("Content-Length: 9"), std::string("Connection: close")}) {
        EXPECT_NE(seen.find("\r\n" + line + "\r\n"), std::string::npos) << line << "\n" << seen;
    }
}

TEST_F(BeastHttpClientTest, readsWholeResponsesAndNothingElse) {
    const std::string tooLong(HttpRequest::usualMaxBody + 1, 'a');
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::pair<std::string, std::string> rows[] = {
        {ok + "Content-Length: 0\r\n\r\n", "200 "},
        {ok + "Content-Length: 3\r\n\r\nabcdef", "200 abc"},
        {ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n1\r\nc\r\n0\r\n\r\n", "200 abc"},
        {ok + "\r\nuntil the end", "200 until the end"},
        {"HTTP/1.0 204 None\r\n\r\n", "204 "},
        {"HTTP/1.1 302 Found\r\nLocation: /x\r\nContent-Length: 0\r\n\r\n", "302 to /x"},
        {ok + "Content-Length: 4\r\n\r\nabc", "nothing"},
        {ok + "Content-Length: 9999999999\r\n\r\nabc", "nothing"},
        {ok + "Content-Length: -1\r\n\r\nabc", "nothing"},
        {ok + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\nab", "nothing"},
        {ok + "\r\n" + tooLong, "nothing"},
        {ok + "X: " + tooLong, "nothing"},
        {"SSH-2.0-Open\r\n\r\n", "nothing"},
        {"", "nothing"},
    };
    for (const auto& [text, expected] : rows) {
        TestServer server(answering(text));
        ask(to("http://" + server.address()));
        EXPECT_EQ(answer(), expected) << text.substr(0, 80);
    }
}

TEST_F(BeastHttpClientTest, handsOnBodiesOfSuccessOnlyPieceByPiece) {
    const std::string large(3 * HttpRequest::usualMaxBody, 'a');
    const auto lengthOf = [](const std::string& body) {
        return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    };
    struct Row {
        const char* name;
        std::string text;
        std::string answer;
        std::size_t streamed;
    };
    const Row rows[] = {
        {"large", "HTTP/1.1 200 OK\r\n" + lengthOf(large), "200 ", large.size()},
        {"to its end", "HTTP/1.1 200 OK\r\n\r\n" + large, "200 ", large.size()},
        {"an error's page", "HTTP/1.1 404 No\r\n" + lengthOf("none"), "404 none", 0},
        {"a large one", "HTTP/1.1 404 No\r\n" + lengthOf(large), "nothing", 0},
        {"more than wanted", "HTTP/1.1 200 OK\r\n" + lengthOf(large + large), "nothing", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TestServer server(answering(row.text));
        auto request = to("http://" + server.address());
        std::size_t streamed = 0;
        request.maxBody = large.size() + 1;
        request.onBody = [&](ByteView piece) {
            EXPECT_TRUE(queue.isCurrent());
            streamed += piece.size();
            return true;
        };
        ask(std::move(request));
        EXPECT_EQ(answer(), row.answer);
        EXPECT_EQ(streamed, row.streamed);
    }

    TestServer server(answering("HTTP/1.1 200 OK\r\n" + lengthOf(large)));
    auto refusing = to("http://" + server.address());
    int pieces = 0;
    refusing.maxBody = large.size();
    refusing.onBody = [&](ByteView) { return ++pieces < 3; };
    ask(std::move(refusing));
    EXPECT_EQ(answer(), "nothing");
    EXPECT_EQ(pieces, 3);
}

TEST_F(BeastHttpClientTest, givesUpInTimeAndWhereThereIsNothing) {
    TestServer silent([](tcp::socket& connection) { connection.wait(tcp::socket::wait_error); });
    ask(to("http://" + silent.address(), 100ms));
    EXPECT_EQ(answer(), "nothing");
    ask(to("https://" + silent.address(), 100ms));
    EXPECT_EQ(answer(), "nothing");
    TestServer stalled([](tcp::socket& connection) {
        asio::write(connection, asio::buffer(std::string("HTTP/1.1 200 OK\r\n\r\nab")));
        connection.wait(tcp::socket::wait_error);
    });
    auto impatient = to("http://" + stalled.address(), 1h);
    impatient.silence = 100ms;
    ask(std::move(impatient));
    EXPECT_EQ(answer(), "nothing");
    for (const auto* url : {"ftp://127.0.0.1/", "http:", "/path", "http://nowhere.invalid",
                            "http://127.0.0.1:1/", "http://127.0.0.1:70000/"}) {
        ask(to(url));
        EXPECT_EQ(answer(), "nothing") << url;
    }
    auto injecting = to("http://" + silent.address());
    injecting.headers = {{"Authorization", "Bearer a\r\nX: y"}};
    ask(std::move(injecting));
    EXPECT_EQ(answer(), "nothing");
}

TEST_F(BeastHttpClientTest, dropsWhatIsUnderWayWithItself) {
    Inbox<bool> connected;
    TestServer silent([&](tcp::socket& connection) {
        connected.put(true);
        connection.wait(tcp::socket::wait_error);
    });
    ask(to("http://" + silent.address()));
    EXPECT_TRUE(connected.take());
    client.reset();
    Inbox<bool> later;
    queue.post([&] { later.put(true); });
    EXPECT_TRUE(later.take());
    EXPECT_FALSE(responses.take(0s));
}

}  // namespace
}  // namespace orvel
