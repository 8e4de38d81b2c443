#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <memory>

#include "OrvelAgent/Core/Connection.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// A Connection over a TCP socket on the queue's event loop. Included only by TcpListener: Boost
// stays out of everything else.
class TcpConnection final : public Connection {
public:
    TcpConnection(SerialQueue& queue, boost::asio::ip::tcp::socket socket);
    ~TcpConnection() override;

    void receive(UniqueFunction<void(std::optional<ByteView>)> completion) override;
    void send(ByteView bytes, UniqueFunction<void(bool)> completion) override;
    void cancel() override;
    void finish() override;
    std::string remoteAddress() const override { return address; }

private:
    struct Stream;  // what the pending operations keep alive
    std::shared_ptr<Stream> stream;
    std::string address;
};

}  // namespace orvel
