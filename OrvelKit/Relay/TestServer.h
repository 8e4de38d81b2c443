#pragma once

#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace orvel {

// Takes connections on the loopback interface one after the other and plays each with a function
// that may block; destroying it ends what is still blocked.
class TestServer {
public:
    using tcp = boost::asio::ip::tcp;
    using Play = std::function<void(tcp::socket&)>;

    explicit TestServer(Play play)
        : acceptor(context, {boost::asio::ip::address_v4::loopback(), 0}),
          thread([this, play = std::move(play)] { serve(play); }) {}

    ~TestServer() {
        {
            const std::lock_guard guard(lock);
            ended = true;
            ::shutdown(acceptor.native_handle(), SHUT_RDWR);
            if (current >= 0) ::shutdown(current, SHUT_RDWR);
        }
        thread.join();
    }

    std::string address() const {
        return "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
    }
    std::string named(const std::string& host) const {
        return host + ":" + std::to_string(acceptor.local_endpoint().port());
    }

private:
    void serve(const Play& play) {
        for (;;) {
            tcp::socket socket(context);
            boost::system::error_code error;
            acceptor.accept(socket, error);
            {
                const std::lock_guard guard(lock);
                if (error || ended) return;
                current = socket.native_handle();
            }
            try {
                play(socket);
            } catch (const boost::system::system_error&) {
                // The client went away, or was meant to make it so.
            }
            const std::lock_guard guard(lock);
            current = -1;
            // Here, while nobody shuts down a descriptor that has become another's.
            socket.close(error);
        }
    }

    boost::asio::io_context context;
    tcp::acceptor acceptor;
    std::mutex lock;
    bool ended = false;  // guarded by lock
    int current = -1;    // likewise: the connection that is played
    std::thread thread;
};

}  // namespace orvel
