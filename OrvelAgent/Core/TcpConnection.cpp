#include "OrvelAgent/Core/TcpConnection.h"

#include <boost/asio/buffer.hpp>

#include "OrvelAgent/Platform/SocketOptions.h"

namespace orvel {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

struct TcpConnection::Stream : std::enable_shared_from_this<Stream> {
    Stream(SerialQueue& streamQueue, tcp::socket connected)
        : queue(streamQueue), socket(std::move(connected)) {}

    SerialQueue& queue;
    tcp::socket socket;
    std::array<std::uint8_t, maxReceive> incoming;
    UniqueFunction<void(std::optional<ByteView>)> received;
    UniqueFunction<void(bool)> sent;
    ByteView outgoing;
    bool over = false;  // cancelled or finished: no completion any more
    Timer lingering;

    void read() {
        socket.async_read_some(asio::buffer(incoming),
                               [self = shared_from_this()](error_code error, std::size_t count) {
                                   self->readCompleted(error, count);
                               });
    }

    void readCompleted(error_code error, std::size_t count) {
        if (over) {
            // Finishing: what still comes in is thrown away until the peer closes too.
            if (!error && lingering.isPending()) return read();
            return close();
        }
        const auto completion = std::exchange(received, nullptr);
        if (error) return completion(std::nullopt);
        completion(ByteView(incoming.data(), count));
    }

    void write() {
        socket.async_wait(tcp::socket::wait_write,
                          [self = shared_from_this()](error_code error) { self->writable(error); });
    }

    void writable(error_code error) {
        if (over) return;
        if (!error) {
            const std::size_t count =
                socket.write_some(asio::buffer(outgoing.data(), outgoing.size()), error);
            if (error == asio::error::would_block) error = {};
            outgoing = outgoing.subspan(count);
        }
        if (!error && !outgoing.empty()) return write();
        const auto completion = std::exchange(sent, nullptr);
        completion(!error);
    }

    void close() {
        error_code ignored;
        socket.close(ignored);
        lingering.cancel();
    }

    void end() {
        over = true;
        received = nullptr;
        sent = nullptr;
        outgoing = {};
    }
};

namespace {

std::string addressOf(const tcp::socket& socket) {
    error_code error;
    const auto endpoint = socket.remote_endpoint(error);
    if (error) return {};
    auto address = endpoint.address();
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        address = asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
    }
    return address.to_string();
}

}  // namespace

TcpConnection::TcpConnection(SerialQueue& queue, tcp::socket socket) {
    error_code ignored;
    socket.non_blocking(true, ignored);
    prepareConnectedSocket(socket.native_handle());
    address = addressOf(socket);
    stream = std::make_shared<Stream>(queue, std::move(socket));
}

TcpConnection::~TcpConnection() {
    if (!stream->over) cancel();
}

void TcpConnection::receive(UniqueFunction<void(std::optional<ByteView>)> completion) {
    if (stream->over) return;
    stream->received = std::move(completion);
    stream->read();
}

void TcpConnection::send(ByteView bytes, UniqueFunction<void(bool)> completion) {
    if (stream->over) return;
    stream->outgoing = bytes;
    stream->sent = std::move(completion);
    stream->write();
}

void TcpConnection::cancel() {
    stream->end();
    stream->close();
}

void TcpConnection::finish() {
    if (stream->over) return;
    const bool reading = static_cast<bool>(stream->received);
    stream->end();
    // Closing a socket with unread bytes makes the kernel reset the connection, and the peer loses
    // what it has not read yet: so close our direction only, and the rest when the peer does, or
    // after a second.
    error_code ignored;
    stream->socket.shutdown(tcp::socket::shutdown_send, ignored);
    stream->lingering =
        stream->queue.after(std::chrono::seconds(1), [kept = stream] { kept->close(); });
    if (!reading) stream->read();
}

}  // namespace orvel
