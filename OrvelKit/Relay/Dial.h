#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <memory>
#include <string>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Base/UniqueFunction.h"
#include "OrvelKit/Relay/Network.h"
#include "OrvelKit/Relay/Url.h"

namespace orvel {

// Where a connection goes to.
struct Endpoint {
    std::string host;       // a name or an address
    std::string authority;  // for the Host header
    std::string target;     // path and query
    std::string port;
    bool secure = false;

    // nullopt when the scheme is neither of these, or there is no host.
    static std::optional<Endpoint> of(const Url& url, const char* plainScheme,
                                      const char* secureScheme);
};

// Connects to a host by name: resolved afresh, all its addresses tried, each a little after the one
// before and families in turn, the first that answers wins (RFC 8305). Belongs to the queue. The
// caller limits its time; destroying it gives up without a completion. Included only by the
// clients: Boost stays out of everything else.
class Dial {
public:
    using tcp = boost::asio::ip::tcp;
    using Completion = UniqueFunction<void(boost::system::error_code, tcp::socket)>;
    static constexpr std::chrono::milliseconds attemptDelay{250};

    Dial(SerialQueue& queue, const Endpoint& endpoint, const Network& network,
         Completion completion);
    ~Dial();
    Dial(const Dial&) = delete;
    Dial& operator=(const Dial&) = delete;

private:
    struct State;
    std::shared_ptr<State> state;
};

// For one connection: TLS 1.2 or later, the peer's certificate verified.
boost::asio::ssl::context tlsContext(const Network& network);

// Before the handshake: the peer has to be `host`, and is told so.
void expectHost(boost::asio::ssl::stream<boost::asio::ip::tcp::socket>& stream,
                const std::string& host);

// Why its handshake failed, for a log.
std::string tlsFailure(boost::asio::ssl::stream<boost::asio::ip::tcp::socket>& stream,
                       boost::system::error_code error);

}  // namespace orvel
