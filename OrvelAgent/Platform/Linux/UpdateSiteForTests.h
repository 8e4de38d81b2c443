#pragma once

#include <boost/asio/read_until.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "OrvelKit/Relay/TestCertificates.h"
#include "OrvelKit/Relay/TestServer.h"

namespace orvel {

// A web server over TLS on the loopback interface, as a test wants it.
class UpdateSite {
public:
    struct Page {
        std::string body = {};
        std::string status = "200 OK";
        std::string location = {};
        std::optional<std::size_t> announced = std::nullopt;  // the length that it claims
    };

    explicit UpdateSite(const TestAuthority& authority)
        : certificate(authority.issue("DNS:localhost,IP:127.0.0.1")),
          server([this](auto& connection) { play(connection); }) {}

    std::string at(const std::string& path) const {
        return "https://localhost:" + server.address().substr(10) + path;
    }
    void put(const std::string& path, Page page) {
        const std::lock_guard guard(lock);
        pages[path] = std::move(page);
    }

private:
    using tcp = boost::asio::ip::tcp;

    void play(tcp::socket& connection) {
        namespace asio = boost::asio;
        asio::ssl::context context(asio::ssl::context::tls_server);
        context.use_certificate_chain(asio::buffer(certificate.certificate));
        context.use_private_key(asio::buffer(certificate.key), asio::ssl::context::pem);
        asio::ssl::stream<tcp::socket&> peer(connection, context);
        peer.handshake(asio::ssl::stream_base::server);
        std::string request;
        asio::read_until(peer, asio::dynamic_buffer(request), "\r\n\r\n");
        const auto from = request.find(' ') + 1;
        const auto page = pageAt(request.substr(from, request.find(' ', from) - from));
        std::string text = "HTTP/1.1 " + page.status + "\r\nContent-Length: ";
        text += std::to_string(page.announced.value_or(page.body.size()));
        if (!page.location.empty()) text += "\r\nLocation: " + page.location;
        asio::write(peer, asio::buffer(text + "\r\n\r\n" + page.body));
        boost::system::error_code ignored;
        peer.shutdown(ignored);
    }

    Page pageAt(const std::string& path) {
        const std::lock_guard guard(lock);
        const auto found = pages.find(path);
        return found == pages.end() ? Page{"none", "404 Not Found"} : found->second;
    }

    std::mutex lock;
    std::map<std::string, Page> pages;  // guarded by lock
    const TestAuthority::Signed certificate;
    TestServer server;
};

}  // namespace orvel
