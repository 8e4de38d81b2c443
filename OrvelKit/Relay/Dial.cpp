#include "OrvelKit/Relay/Dial.h"

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <charconv>

#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

namespace asio = boost::asio;
using boost::system::error_code;
using tcp = asio::ip::tcp;

std::optional<Endpoint> Endpoint::of(const Url& url, const char* plainScheme,
                                     const char* secureScheme) {
    const auto scheme = url.scheme();
    Endpoint endpoint{url.host(), url.authority(), url.target(), {}, scheme == secureScheme};
    if (endpoint.host.empty() || (!endpoint.secure && scheme != plainScheme)) return std::nullopt;
    endpoint.port = url.port();
    if (endpoint.port.empty()) endpoint.port = endpoint.secure ? "443" : "80";
    std::uint16_t number = 0;
    const auto* end = endpoint.port.data() + endpoint.port.size();
    const auto [read, error] = std::from_chars(endpoint.port.data(), end, number);
    if (error != std::errc() || read != end || number == 0) return std::nullopt;
    return endpoint;
}

struct Dial::State : std::enable_shared_from_this<State> {
    State(SerialQueue& dialQueue, const Network& dialNetwork, Completion dialCompletion)
        : queue(dialQueue),
          network(dialNetwork),
          resolver(ioContext(dialQueue)),
          completion(std::move(dialCompletion)) {}

    SerialQueue& queue;
    const Network network;
    tcp::resolver resolver;
    Completion completion;  // null: over
    std::vector<tcp::endpoint> addresses;
    std::size_t next = 0;  // in addresses
    std::vector<std::shared_ptr<tcp::socket>> attempts;
    std::size_t failed = 0;
    error_code lastError;
    Timer stagger;

    void resolve(const Endpoint& endpoint) {
        resolver.async_resolve(endpoint.host, endpoint.port,
                               [self = shared_from_this()](error_code error, auto results) {
                                   self->resolved(error, results);
                               });
    }

    void resolved(error_code error, const tcp::resolver::results_type& results) {
        if (!completion) return;
        if (error) return finish(error, tcp::socket(ioContext(queue)));
        // The resolver's order is the system's preference (RFC 6724); the families alternate.
        std::array<std::vector<tcp::endpoint>, 2> families;
        for (const auto& result : results) {
            const bool other =
                result.endpoint().protocol() != results.begin()->endpoint().protocol();
            families[other].push_back(result.endpoint());
        }
        for (std::size_t i = 0; i < std::max(families[0].size(), families[1].size()); ++i) {
            for (const auto& family : families) {
                if (i < family.size()) addresses.push_back(family[i]);
            }
        }
        tryNext();
    }

    void tryNext() {
        if (!completion || next == addresses.size()) return;
        auto socket = std::make_shared<tcp::socket>(ioContext(queue));
        attempts.push_back(socket);
        socket->async_connect(addresses[next++],
                              [self = shared_from_this(), socket](error_code error) {
                                  self->connected(error, *socket);
                              });
        stagger = queue.after(attemptDelay, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->tryNext();
        });
    }

    void connected(error_code error, tcp::socket& socket) {
        if (!completion) return;
        if (!error) {
            if (network.prepareSocket) network.prepareSocket(socket.native_handle());
            return finish(error, std::move(socket));
        }
        lastError = error;
        if (++failed == addresses.size()) return finish(error, tcp::socket(ioContext(queue)));
        tryNext();
    }

    void finish(error_code error, tcp::socket socket) {
        const auto done = std::exchange(completion, nullptr);
        cancel();
        done(error, std::move(socket));
    }

    void cancel() {
        completion = nullptr;
        stagger.cancel();
        resolver.cancel();
        for (const auto& attempt : attempts) {
            error_code ignored;
            attempt->close(ignored);
        }
        attempts.clear();
    }
};

Dial::Dial(SerialQueue& queue, const Endpoint& endpoint, const Network& network,
           Completion completion)
    : state(std::make_shared<State>(queue, network, std::move(completion))) {
    state->resolve(endpoint);
}

Dial::~Dial() {
    state->cancel();
}

asio::ssl::context tlsContext(const Network& network) {
    asio::ssl::context context(asio::ssl::context::tls_client);
    error_code error;
    if (network.certificateFile.empty()) {
        context.set_default_verify_paths(error);
    } else {
        context.load_verify_file(network.certificateFile, error);
    }
    // Without roots no peer verifies, which is what is said then.
    context.set_verify_mode(asio::ssl::verify_peer, error);
    SSL_CTX_set_min_proto_version(context.native_handle(), TLS1_2_VERSION);
    return context;
}

void expectHost(asio::ssl::stream<tcp::socket>& stream, const std::string& host) {
    SSL* const tls = stream.native_handle();
    SSL_set_hostflags(tls, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), host.c_str()) == 1) return;
    // A name, then. One that cannot be set must not go unchecked.
    if (SSL_set1_host(tls, host.c_str()) != 1) SSL_set1_host(tls, "invalid");
    SSL_set_tlsext_host_name(tls, host.c_str());
}

std::string tlsFailure(asio::ssl::stream<tcp::socket>& stream, error_code error) {
    const long verdict = SSL_get_verify_result(stream.native_handle());
    if (verdict != X509_V_OK) return X509_verify_cert_error_string(verdict);
    return error.message();
}

}  // namespace orvel
