#include "OrvelAgent/Core/TcpListener.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <cstdio>

#include "OrvelAgent/Core/TcpConnection.h"
#include "OrvelAgent/Platform/SocketOptions.h"
#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

class TcpListener final : public Listener {
public:
    explicit TcpListener(SerialQueue& listenerQueue) : queue(listenerQueue) {}
    ~TcpListener() override { stop(); }

    Result listen(const std::string& address, std::uint16_t port, Handlers handlers) override {
        error_code error;
        auto acceptor =
            address.empty() ? openEverywhere(port, error) : openAt(address, port, error);
        if (error) return {0, error.message()};
        state = std::make_shared<State>(queue, std::move(*acceptor), std::move(handlers));
        state->accept();
        const auto local = state->acceptor.local_endpoint(error);
        if (error) return {0, error.message()};
        return {local.port(), {}};
    }

    void stop() override {
        if (!state) return;
        state->stopped = true;
        error_code ignored;
        state->acceptor.close(ignored);
        state.reset();
    }

private:
    struct State : std::enable_shared_from_this<State> {
        State(SerialQueue& stateQueue, tcp::acceptor opened, Handlers stateHandlers)
            : queue(stateQueue), acceptor(std::move(opened)), handlers(std::move(stateHandlers)) {}

        SerialQueue& queue;
        tcp::acceptor acceptor;
        Handlers handlers;
        Timer pause;
        bool stopped = false;

        void accept() {
            acceptor.async_accept(
                [self = shared_from_this()](error_code error, tcp::socket socket) {
                    self->accepted(error, std::move(socket));
                });
        }

        void accepted(error_code error, tcp::socket socket) {
            if (stopped) return;
            if (!error) {
                handlers.onConnection(std::make_unique<TcpConnection>(queue, std::move(socket)));
                return accept();
            }
            if (error == asio::error::no_descriptors || error == asio::error::no_memory ||
                error == asio::error::no_buffer_space ||
                error == boost::system::errc::too_many_files_open_in_system) {
                // The waiting connection stays in the backlog, so asking again at once would spin.
                pause = queue.after(std::chrono::milliseconds(100), [weak = weak_from_this()] {
                    if (auto self = weak.lock(); self && !self->stopped) self->accept();
                });
                return;
            }
            if (error == asio::error::bad_descriptor || error == asio::error::invalid_argument) {
                return handlers.onFailed(error.message());
            }
            accept();  // the connection died before it was accepted
        }
    };

    std::optional<tcp::acceptor> open(const tcp::endpoint& endpoint, error_code& error) {
        tcp::acceptor acceptor(ioContext(queue));
        acceptor.open(endpoint.protocol(), error);
        if (error) return std::nullopt;
        prepareListeningSocket(acceptor.native_handle());
        error_code ignored;
        acceptor.set_option(tcp::acceptor::reuse_address(true), ignored);
        if (endpoint.protocol() == tcp::v6()) {
            acceptor.set_option(asio::ip::v6_only(!endpoint.address().is_unspecified()), ignored);
        }
        acceptor.bind(endpoint, error);
        if (!error) acceptor.listen(tcp::acceptor::max_listen_connections, error);
        if (error) return std::nullopt;
        return acceptor;
    }

    std::optional<tcp::acceptor> openEverywhere(std::uint16_t port, error_code& error) {
        auto acceptor = open({tcp::v6(), port}, error);
        if (error == asio::error::address_family_not_supported ||
            error == boost::system::errc::address_not_available) {
            error.clear();
            acceptor = open({tcp::v4(), port}, error);  // a system without IPv6
        }
        return acceptor;
    }

    std::optional<tcp::acceptor> openAt(const std::string& address, std::uint16_t port,
                                        error_code& error) {
        const auto parsed = asio::ip::make_address(address, error);
        if (error) return std::nullopt;
        return open({parsed, port}, error);
    }

    SerialQueue& queue;
    std::shared_ptr<State> state;
};

}  // namespace

std::unique_ptr<Listener> makeTcpListener(SerialQueue& queue) {
    return std::make_unique<TcpListener>(queue);
}

}  // namespace orvel
