#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <filesystem>
#include <fstream>

#include "OrvelKit/Relay/Inbox.h"
#include "OrvelKit/Relay/TestCertificates.h"
#include "OrvelKit/Relay/TestServer.h"
#include "OrvelKit/Relay/WebSocket.h"

namespace orvel {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;

using PlainPeer = websocket::stream<tcp::socket&>;

// A client on a real queue; what it tells is one line each: "message …", "end …".
struct BeastWebSocketTest : testing::Test {
    SerialQueue queue{"orvel.realtime"};
    Inbox<std::string> told;
    Inbox<int> prepared;
    std::string certificateFile;
    std::unique_ptr<WebSocket> socket;

    ~BeastWebSocketTest() override {
        onQueue([this] { socket.reset(); });
        if (!certificateFile.empty()) std::filesystem::remove(certificateFile);
    }

    // Waits until it ran.
    void onQueue(const std::function<void()>& task) {
        Inbox<bool> done;
        queue.post([&] {
            task();
            done.put(true);
        });
        ASSERT_TRUE(done.take());
    }

    void open(const std::string& url) {
        onQueue([&] {
            socket = systemWebSockets({[this](int fd) { prepared.put(fd); }, certificateFile})(
                queue, Url::parse(url).value(),
                {[this](const std::string& message) { told.put("message " + message); },
                 [this](const std::string& reason) { told.put("end " + reason); }});
        });
    }
    void send(const std::string& text) {
        onQueue([&] { socket->send(text); });
    }
    std::string next() { return told.take().value_or("nothing"); }

    void trust(const std::string& certificate) {
        certificateFile = std::filesystem::temp_directory_path() /
                          ("orvel-authority-" + std::to_string(getpid()) + ".pem");
        std::ofstream(certificateFile) << certificate;
    }
};

// Reads the request, so that the test can look at it, and accepts it.
void accept(PlainPeer& peer, tcp::socket& socket, Inbox<std::string>& requests) {
    beast::flat_buffer buffer;
    beast::http::request<beast::http::string_body> request;
    beast::http::read(socket, buffer, request);
    requests.put(std::string(request.target()) + " " + std::string(request["Host"]));
    peer.accept(request);
}

std::string readText(auto& peer) {
    beast::flat_buffer buffer;
    peer.read(buffer);
    return beast::buffers_to_string(buffer.data());
}

TEST_F(BeastWebSocketTest, talksInBothDirectionsAndClosesWithItsCode) {
    Inbox<std::string> requests, received;
    TestServer server([&](tcp::socket& connection) {
        PlainPeer peer(connection);
        accept(peer, connection, requests);
        for (int i = 0; i < 3; ++i)
            received.put((readText(peer), peer.got_text() ? "text" : "binary"));
        peer.text(true);
        peer.write(asio::buffer(std::string("ç")));
        peer.binary(true);
        peer.write(asio::buffer(std::string("\xff")));
        peer.ping({});
        peer.text(true);
        peer.write(asio::buffer(std::string(300'000, 'a')));
        boost::system::error_code error;
        beast::flat_buffer buffer;
        peer.read(buffer, error);
        received.put(error.message() + " " + std::to_string(peer.reason().code));
    });
    onQueue([&] {
        socket = systemWebSockets({[this](int fd) { prepared.put(fd); }, {}})(
            queue, Url::parse("ws://" + server.address() + "/a/b?c=d#e").value(),
            {[this](const std::string& message) { told.put("message " + message); },
             [this](const std::string& reason) { told.put("end " + reason); }});
        for (const auto* text : {"1", "2", "3"})  // before it is open
            socket->send(text);
    });
    EXPECT_EQ(requests.take(), "/a/b?c=d " + server.address());
    EXPECT_GE(prepared.take().value_or(-1), 0);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(received.take(), "text");
    EXPECT_EQ(next(), "message ç");
    EXPECT_EQ(next(), "message \xff");
    EXPECT_EQ(next(), "message " + std::string(300'000, 'a'));
    onQueue([&] {
        socket->close(1001);
        socket.reset();  // the closing goes on
    });
    EXPECT_EQ(received.take(), "The WebSocket stream was gracefully closed at both endpoints 1001");
}

TEST_F(BeastWebSocketTest, saysHowItEnded) {
    struct Row {
        const char* name;
        TestServer::Play play;
        std::string expected;
    };
    const auto accepted = [](std::function<void(PlainPeer&, tcp::socket&)> then) {
        return [then = std::move(then)](tcp::socket& connection) {
            PlainPeer peer(connection);
            peer.accept();
            then(peer, connection);
            boost::system::error_code error;  // until the client says or does something
            char byte = 0;
            connection.read_some(asio::buffer(&byte, 1), error);
        };
    };
    const auto answering = [](std::string text) {
        return [text = std::move(text)](tcp::socket& connection) {
            beast::flat_buffer buffer;
            beast::http::request<beast::http::string_body> request;
            beast::http::read(connection, buffer, request);
            asio::write(connection, asio::buffer(text));
            connection.shutdown(tcp::socket::shutdown_send);
            boost::system::error_code error;
            char byte = 0;
            connection.read_some(asio::buffer(&byte, 1), error);
        };
    };
    const Row rows[] = {
        {"closed properly",
         accepted([](auto& peer, auto&) { peer.close(websocket::close_code::normal); }),
         "closed with code 1000"},
        {"closed for a restart",
         accepted([](auto& peer, auto&) { peer.close(websocket::close_code::service_restart); }),
         "closed with code 1012"},
        {"half closed",
         accepted([](auto&, auto& raw) { raw.shutdown(tcp::socket::shutdown_send); }),
         "End of file"},
        {"text that is none",
         accepted([](auto&, auto& raw) { asio::write(raw, asio::buffer("\x81\x02\xff\xfe", 4)); }),
         ""},
        {"a frame that is none",
         accepted([](auto&, auto& raw) { asio::write(raw, asio::buffer("\x83\0", 2)); }), ""},
        {"a message too long", accepted([](auto&, auto& raw) {
             const std::string head("\x82\x7f\0\0\0\0\0\x40\0\x01", 10);  // 4 MiB and 1
             asio::write(raw, asio::buffer(head));
         }),
         ""},
        {"nonsense, and then it stays",
         [](tcp::socket& connection) {
             PlainPeer peer(connection);
             peer.accept();
             asio::write(connection, asio::buffer("\x83\0", 2));
             boost::system::error_code error;
             char byte = 0;
             while (!error)
                 connection.read_some(asio::buffer(&byte, 1), error);
         },
         "the peer does not close"},
        {"refused", answering("HTTP/1.1 403 Forbidden\r\nContent-Length: 2\r\n\r\n{}"),
         "refused with status 403"},
        {"redirected",
         answering("HTTP/1.1 301 Moved\r\nLocation: ws://x/\r\nContent-Length: 0\r\n\r\n"),
         "refused with status 301"},
        {"no websocket", answering("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"),
         "refused with status 200"},
        {"garbage", answering("\x15\x03\x01\r\n\r\n"), ""},
        {"endless headers", answering("HTTP/1.1 101 Yes\r\nX: " + std::string(100'000, 'a')), ""},
        {"nothing", [](tcp::socket&) {}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TestServer server(row.play);
        open("ws://" + server.address() + "/");
        const auto end = next();
        EXPECT_THAT(end, testing::StartsWith("end "));
        if (!row.expected.empty()) {
            EXPECT_EQ(end, "end " + row.expected);
        }
        send("too late");
        onQueue([this] { socket->close(1000); });
    }
}

TEST_F(BeastWebSocketTest, goesNowhereWhereThereIsNothing) {
    std::string unused;
    {
        TestServer server([](auto&) {});
        unused = server.address();
    }
    const std::pair<std::string, std::string> rows[] = {
        {"ws://" + unused, "end Connection refused"},
        {"ws://nowhere.invalid", "end Host not found"},
        {"http://" + unused, "end no websocket address"},
        {"ws://127.0.0.1:99999", "end no websocket address"},
        {"localhost", "end no websocket address"},
    };
    for (const auto& [url, expected] : rows) {
        open(url);
        EXPECT_TRUE(next().starts_with(expected)) << url;
    }
}

TEST_F(BeastWebSocketTest, aPeerThatTakesNothingIsLeft) {
    TestServer server([](tcp::socket& connection) {
        PlainPeer peer(connection);
        peer.accept();
        connection.wait(tcp::socket::wait_error);
    });
    open("ws://" + server.address());
    const std::string much(1 << 20, 'a');
    for (int i = 0; i < 40; ++i)
        send(much);
    EXPECT_EQ(next(), "end the peer takes nothing");
}

TEST_F(BeastWebSocketTest, mayBeDroppedAtAnyMoment) {
    TestServer server([](tcp::socket& connection) {
        PlainPeer peer(connection);
        peer.accept();
        for (;;)
            peer.write(asio::buffer(std::string("more")));
    });
    const auto url = Url::parse("ws://" + server.address()).value();
    onQueue([&] {  // while it connects
        socket = systemWebSockets({})(queue, url, {});
        socket->send("1");
        socket.reset();
    });
    onQueue([&] {  // in its own callback
        socket = systemWebSockets({})(queue, url,
                                      {[this](auto) {
                                           socket.reset();
                                           told.put("dropped");
                                       },
                                       {}});
    });
    EXPECT_EQ(next(), "dropped");
    onQueue([&] {
        socket = systemWebSockets({})(queue, Url::parse("ws://nowhere.invalid").value(),
                                      {{}, [this](auto) {
                                           socket.reset();
                                           told.put("dropped");
                                       }});
    });
    EXPECT_EQ(next(), "dropped");
}

// A queue may go while a connection is open.
TEST(BeastWebSocket, goesWithItsQueue) {
    TestServer server([](tcp::socket& connection) {
        PlainPeer peer(connection);
        peer.accept();
        peer.write(asio::buffer(std::string("hello")));
        connection.wait(tcp::socket::wait_error);
    });
    Inbox<bool> arrived;
    std::unique_ptr<WebSocket> socket;
    {
        SerialQueue queue("orvel.realtime");
        queue.post([&] {
            socket = systemWebSockets({})(queue, Url::parse("ws://" + server.address()).value(),
                                          {[&](auto) { arrived.put(true); }, {}});
        });
        EXPECT_TRUE(arrived.take());
        Inbox<bool> gone;
        queue.post([&, held = std::move(socket)]() mutable { gone.put(true); });
        EXPECT_TRUE(gone.take());
    }
}

TEST_F(BeastWebSocketTest, believesNobodyWithoutAProperCertificate) {
    const TestAuthority authority, another;
    struct Row {
        const char* name;
        TestAuthority::Signed server;
        const char* host;
        std::string expected;
    };
    const Row rows[] = {
        {"proper", authority.issue("DNS:localhost"), "localhost", "message localhost"},
        {"proper, by address", authority.issue("IP:127.0.0.1"), "127.0.0.1", "message "},
        {"another's name", authority.issue("DNS:other.example"), "localhost",
         "end hostname mismatch"},
        {"a name for an address", authority.issue("DNS:localhost"), "127.0.0.1", "end "},
        {"expired", authority.issue("DNS:localhost", -60), "localhost",
         "end certificate has expired"},
        {"of another authority", another.issue("DNS:localhost"), "localhost",
         "end certificate signature failure"},
    };
    trust(authority.certificate());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TestServer server([&](tcp::socket& connection) {
            asio::ssl::context context(asio::ssl::context::tls_server);
            context.use_certificate_chain(asio::buffer(row.server.certificate));
            context.use_private_key(asio::buffer(row.server.key), asio::ssl::context::pem);
            websocket::stream<asio::ssl::stream<tcp::socket&>> peer(connection, context);
            peer.next_layer().handshake(asio::ssl::stream_base::server);
            const char* asked =
                SSL_get_servername(peer.next_layer().native_handle(), TLSEXT_NAMETYPE_host_name);
            peer.accept();
            peer.write(asio::buffer(std::string(asked ? asked : "")));
            readText(peer);
        });
        open("wss://" + server.named(row.host) + "/");
        EXPECT_THAT(next(), testing::StartsWith(row.expected));
        onQueue([this] { socket.reset(); });
    }

    // Without the authority: the system's store does not know it.
    std::filesystem::remove(certificateFile);
    certificateFile.clear();
    const auto proper = authority.issue("DNS:localhost");
    TestServer server([&](tcp::socket& connection) {
        asio::ssl::context context(asio::ssl::context::tls_server);
        context.use_certificate_chain(asio::buffer(proper.certificate));
        context.use_private_key(asio::buffer(proper.key), asio::ssl::context::pem);
        asio::ssl::stream<tcp::socket&> peer(connection, context);
        peer.handshake(asio::ssl::stream_base::server);
    });
    open("wss://" + server.named("localhost"));
    EXPECT_EQ(next(), "end unable to get local issuer certificate");
}

}  // namespace
}  // namespace orvel
