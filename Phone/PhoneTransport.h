#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "OrvelKit/Wire/Framing.h"
#include "Phone/PhoneConnection.h"

namespace orvel::phone {

// The works behind PhoneConnection, whose calls these are. The socket and the parsers belong to the
// queue alone; what callers' threads share with it is below the mutex and guarded by it. Shared
// with the queue's handlers, so it may go with them, after its PhoneConnection.
class PhoneTransport : public std::enable_shared_from_this<PhoneTransport> {
public:
    explicit PhoneTransport(SerialQueue& transportQueue);

    bool connect(const std::string& host, std::uint16_t port, Duration timeout, int bufferSize);
    bool secure(const Identity& identity, Duration timeout, bool withholdReveal);
    std::optional<PhoneConnection::Event> next(Duration timeout);
    std::optional<PhoneConnection::Closed> closed() const;
    PhoneConnection::Counts counts() const;
    std::optional<SecureHandshake::Result> peer() const;  // without its session
    MonotonicTime connectStartedAt() const;
    MonotonicTime connectedAt() const;
    bool isSameMachine() const;

    void send(Bytes bytes);
    void sendInner(FrameBuffer frame);
    Bytes seal(ByteView plaintext);
    void sendSealed(ByteView plaintext);
    void pauseReading(bool paused);
    bool flush(Duration timeout);
    void shutdownSending();
    void close();
    void abort();

private:
    using Lock = std::unique_lock<std::mutex>;

    void tryEndpoint(std::vector<boost::asio::ip::tcp::endpoint> endpoints, std::size_t index,
                     int bufferSize, boost::system::error_code last) RUNS_ON(queue);
    void startReading() RUNS_ON(queue);
    void readAvailable() RUNS_ON(queue);
    void receive(std::span<std::uint8_t> bytes) RUNS_ON(queue);
    void receiveFrame(Frame frame) RUNS_ON(queue);
    void receiveSealed(FrameKind kind, std::span<std::uint8_t> box) RUNS_ON(queue);
    void receiveKeys(ByteView payload) RUNS_ON(queue);
    void receiveInner(FrameKind kind, ByteView payload) RUNS_ON(queue);
    bool isSealing() const;
    bool isFull(const Lock&) const;  // the mutex is held
    void deliver(PhoneConnection::Event::Case value, std::size_t size) RUNS_ON(queue);
    void startWriting() RUNS_ON(queue);
    void end(PhoneConnection::Closed why) RUNS_ON(queue);
    void enqueue(Bytes bytes, const Lock&);  // the mutex is held
    template <class Body>
    auto onQueue(Body body);
    template <class Body>
    void runAndWait(Body body);

    SerialQueue& queue;
    boost::asio::ip::tcp::socket socket OWNED_BY(queue);
    boost::asio::ip::tcp::resolver resolver OWNED_BY(queue);
    FrameParser outer OWNED_BY(queue), inner OWNED_BY(queue);
    bool isOuterBegun OWNED_BY(queue) = false, isInnerBegun OWNED_BY(queue) = false;
    std::optional<SecureHandshake::Initiator> initiator OWNED_BY(queue);
    Bytes input OWNED_BY(queue);
    MonotonicTime arrival OWNED_BY(queue);
    bool isReading OWNED_BY(queue) = false;
    bool isWriting OWNED_BY(queue) = false;
    Bytes output OWNED_BY(queue);  // being written

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::deque<std::pair<PhoneConnection::Event, std::size_t>> waiting;
    std::size_t waitingBytes = 0, waitingFileBytes = 0;
    std::optional<PhoneConnection::Closed> ended;
    MonotonicTime connectStarted, connected;
    bool isConnected = false;
    bool sameMachine = false;
    bool paused = false;
    bool withholds = false;
    Bytes withheld;            // the reveal that waits for company
    std::deque<Bytes> outbox;  // not yet begun to be written
    std::size_t unsent = 0;    // messages in the outbox or being written
    bool writeFailed = false;  // the reading side will find the reason
    bool endsSending = false;
    std::unique_ptr<SecureSession> session;
    std::optional<SecureHandshake::Result> secured;
    PhoneConnection::Counts counted;
};

}  // namespace orvel::phone
