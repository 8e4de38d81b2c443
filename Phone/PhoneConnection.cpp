#include "Phone/PhoneConnection.h"

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

#include "OrvelKit/Base/QueueIo.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel::phone {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Closed = PhoneConnection::Closed;
using Event = PhoneConnection::Event;

constexpr std::size_t maxWaitingBytes = 64 << 20;

Event::Case decodeEvent(Frame frame) {
    switch (frame.kind) {
        case FrameKind::control:
            return Framing::decodeControl(frame.payload);
        case FrameKind::videoFormat:
            return VideoFormat::decode(frame.payload);
        case FrameKind::videoFrame:
            return VideoFrame::decode(frame.payload);
        case FrameKind::audio:
            return AudioPacket::decode(frame.payload);
        case FrameKind::file:
            return FileFrame::decode(frame.payload);
        case FrameKind::handshake:
        case FrameKind::sealed:
            break;
    }
    return frame;
}

Closed afterReadError(const error_code& error) {
    if (error == asio::error::eof) return {Closed::Reason::closedByAgent, ""};
    return {Closed::Reason::reset, error.message()};
}

}  // namespace

std::string Closed::describe() const {
    const auto with = [&](std::string sentence) {
        return detail.empty() ? sentence + "." : sentence + ": " + detail + ".";
    };
    switch (reason) {
        case Reason::noAddress:
            return with("The computer's name is not known");
        case Reason::notConnected:
            return with("The computer cannot be reached");
        case Reason::closedByAgent:
            return with("The computer ended the connection");
        case Reason::reset:
            return with("The connection broke off");
        case Reason::nonsense:
            return with("The computer sent something that makes no sense");
        case Reason::timedOut:
            return with("The computer does not answer");
        case Reason::closedHere:
            return with("The connection was closed");
    }
    return with("The connection ended");
}

// What the caller's threads share with the queue: the mutex guards `waiting` and everything below
// it. The socket and the parsers belong to the queue alone.
class PhoneConnection::Link : public std::enable_shared_from_this<Link> {
public:
    explicit Link(SerialQueue& linkQueue)
        : queue(linkQueue), socket(ioContext(linkQueue)), resolver(ioContext(linkQueue)) {}

    bool connect(const std::string& host, std::uint16_t port, Duration timeout, int bufferSize);
    bool secure(const Identity& identity, Duration timeout, bool withholdReveal);
    std::optional<Event> next(Duration timeout);
    std::optional<Closed> closed() const;
    Counts counts() const;
    std::optional<SecureHandshake::Result> peer() const;  // without its session
    MonotonicTime timeOf(MonotonicTime Link::*moment) const;
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

    MonotonicTime connectStarted, connected;  // guarded by the mutex

private:
    using Lock = std::unique_lock<std::mutex>;

    void tryEndpoint(std::vector<tcp::endpoint> endpoints, std::size_t index, int bufferSize,
                     error_code last) RUNS_ON(queue);
    void startReading() RUNS_ON(queue);
    void readAvailable() RUNS_ON(queue);
    void receive(ByteView bytes) RUNS_ON(queue);
    void receiveFrame(Frame frame) RUNS_ON(queue);
    void receiveKeys(ByteView payload) RUNS_ON(queue);
    void receiveInner(Frame frame) RUNS_ON(queue);
    void deliver(Event::Case value, std::size_t size) RUNS_ON(queue);
    void startWriting() RUNS_ON(queue);
    void end(Closed why) RUNS_ON(queue);
    void enqueue(Bytes bytes, const Lock&);
    template <class Body>
    auto onQueue(Body body);
    template <class Body>
    void runAndWait(Body body);

    SerialQueue& queue;
    tcp::socket socket OWNED_BY(queue);
    tcp::resolver resolver OWNED_BY(queue);
    FrameParser outer OWNED_BY(queue), inner OWNED_BY(queue);
    std::optional<SecureHandshake::Initiator> initiator OWNED_BY(queue);
    std::array<std::uint8_t, 65536> input OWNED_BY(queue);
    MonotonicTime arrival OWNED_BY(queue);
    bool isReading OWNED_BY(queue) = false;
    bool isWriting OWNED_BY(queue) = false;
    Bytes output OWNED_BY(queue);  // being written

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::deque<std::pair<Event, std::size_t>> waiting;
    std::size_t waitingBytes = 0;
    std::optional<Closed> ended;
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
    Counts counted;
};

template <class Body>
auto PhoneConnection::Link::onQueue(Body body) {
    return [self = shared_from_this(), body = std::move(body)](auto&&... arguments) mutable {
        self->queue.assertCurrent();
        body(*self, std::forward<decltype(arguments)>(arguments)...);
    };
}

// --- Connecting and the handshake ---

bool PhoneConnection::Link::connect(const std::string& host, std::uint16_t port, Duration timeout,
                                    int bufferSize) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    {
        const Lock hold(mutex);
        connectStarted = std::chrono::steady_clock::now();
    }
    error_code notNumeric;
    const auto address = asio::ip::make_address(host, notNumeric);
    queue.post(onQueue([=](Link& self) {
        self.queue.assertCurrent();
        if (!notNumeric) return self.tryEndpoint({{address, port}}, 0, bufferSize, {});
        self.resolver.async_resolve(
            host, std::to_string(port),
            self.onQueue([bufferSize](Link& same, const error_code& error,
                                      const tcp::resolver::results_type& results) {
                same.queue.assertCurrent();
                if (error) return same.end({Closed::Reason::noAddress, error.message()});
                same.tryEndpoint({results.begin(), results.end()}, 0, bufferSize, {});
            }));
    }));
    Lock hold(mutex);
    if (!changed.wait_until(hold, deadline, [&] { return isConnected || ended; })) {
        hold.unlock();
        runAndWait([](Link& self) {
            self.queue.assertCurrent();
            self.end({Closed::Reason::notConnected, "no answer in time"});
        });
        hold.lock();
    }
    return isConnected;
}

void PhoneConnection::Link::tryEndpoint(std::vector<tcp::endpoint> endpoints, std::size_t index,
                                        int bufferSize, error_code last) {
    if (closed()) return;
    if (index == endpoints.size()) return end({Closed::Reason::notConnected, last.message()});
    const tcp::endpoint endpoint = endpoints[index];
    error_code error;
    socket.close(error);
    socket.open(endpoint.protocol(), error);
    if (!error) socket.set_option(tcp::no_delay(true), error);
    if (!error && bufferSize > 0) {
        socket.set_option(asio::socket_base::receive_buffer_size(bufferSize), error);
    }
    if (error) return tryEndpoint(std::move(endpoints), index + 1, bufferSize, error);
    socket.async_connect(endpoint, onQueue([endpoints = std::move(endpoints), index, bufferSize](
                                               Link& self, error_code failure) mutable {
                             self.queue.assertCurrent();
                             if (self.closed()) return;
                             if (!failure) self.socket.non_blocking(true, failure);
                             if (failure) {
                                 return self.tryEndpoint(std::move(endpoints), index + 1,
                                                         bufferSize, failure);
                             }
                             self.startReading();
                             error_code unknown;
                             const auto here = self.socket.local_endpoint(unknown).address();
                             const auto there = self.socket.remote_endpoint(unknown).address();
                             const Lock hold(self.mutex);
                             self.isConnected = true;
                             self.sameMachine = there.is_loopback() || here == there;
                             self.connected = std::chrono::steady_clock::now();
                             self.changed.notify_all();
                         }));
}

bool PhoneConnection::Link::secure(const Identity& identity, Duration timeout,
                                   bool withholdReveal) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    queue.post(onQueue([identity, withholdReveal](Link& self) {
        self.queue.assertCurrent();
        Lock hold(self.mutex);
        if (self.ended || !self.isConnected || self.secured || self.initiator) return;
        self.withholds = withholdReveal;
        self.initiator.emplace(identity);
        self.enqueue(Framing::encode(FrameKind::handshake, self.initiator->commit()), hold);
    }));
    Lock hold(mutex);
    if (!changed.wait_until(hold, deadline, [&] { return secured || ended; })) {
        hold.unlock();
        runAndWait([](Link& self) {
            self.queue.assertCurrent();
            self.end({Closed::Reason::timedOut, ""});
        });
        hold.lock();
    }
    return secured.has_value();
}

void PhoneConnection::Link::receiveKeys(ByteView payload) {
    auto finished = initiator->receive(payload);
    initiator.reset();
    Bytes reveal = Framing::encode(FrameKind::handshake, finished.reveal);
    const Lock hold(mutex);
    if (withholds) {
        withheld = std::move(reveal);
    } else {
        enqueue(std::move(reveal), hold);
    }
    session = std::move(finished.result.session);
    secured = std::move(finished.result);
    changed.notify_all();
}

// --- Receiving ---

// The socket is read only once it is known that nothing holds reading back: what waits in the
// kernel then is exactly what the agent could get rid of.
void PhoneConnection::Link::startReading() {
    if (isReading) return;
    {
        const Lock hold(mutex);
        if (ended || paused || waitingBytes > maxWaitingBytes) return;
    }
    isReading = true;
    socket.async_wait(tcp::socket::wait_read, onQueue([](Link& self, const error_code& error) {
                          self.queue.assertCurrent();
                          self.isReading = false;
                          if (self.closed()) return;
                          if (error) return self.end(afterReadError(error));
                          {
                              const Lock hold(self.mutex);
                              if (self.paused) return;
                          }
                          self.readAvailable();
                          self.startReading();
                      }));
}

void PhoneConnection::Link::readAvailable() {
    error_code error;
    const std::size_t length = socket.read_some(asio::buffer(input), error);
    if (error == asio::error::would_block) return;
    if (error) return end(afterReadError(error));
    arrival = std::chrono::steady_clock::now();
    {
        const Lock hold(mutex);
        counted.bytesReceived += length;
    }
    try {
        receive(ByteView(input).first(length));
    } catch (const std::exception& nonsense) {
        end({Closed::Reason::nonsense, nonsense.what()});
    }
}

void PhoneConnection::Link::receive(ByteView bytes) {
    while (auto frame = outer.next(bytes, {}))
        receiveFrame(*std::move(frame));
}

void PhoneConnection::Link::receiveFrame(Frame frame) {
    const SecureSession* sealing = [&] {
        const Lock hold(mutex);
        return session.get();
    }();
    if (!sealing) {
        if (frame.kind != FrameKind::handshake) {
            throw FramingError::unknownKind(static_cast<std::uint8_t>(frame.kind));
        }
        if (initiator) return receiveKeys(frame.payload);
        const std::size_t size = frame.payload.size();
        return deliver(std::move(frame), size);
    }
    if (frame.kind != FrameKind::sealed) {
        throw FramingError::unknownKind(static_cast<std::uint8_t>(frame.kind));
    }
    ByteView plaintext = session->openInPlace(frame.payload);
    while (auto contained = inner.next(plaintext, {}))
        receiveInner(*std::move(contained));
}

void PhoneConnection::Link::receiveInner(Frame frame) {
    const FrameKind kind = frame.kind;
    const std::size_t size = frame.payload.size();
    Event::Case value = decodeEvent(std::move(frame));
    {
        const Lock hold(mutex);
        counted.controls += kind == FrameKind::control;
        counted.videoFormats += kind == FrameKind::videoFormat;
        counted.audioPackets += kind == FrameKind::audio;
        counted.fileFrames += kind == FrameKind::file;
        if (const auto* picture = std::get_if<VideoFrame>(&value)) {
            ++counted.videoFrames;
            counted.keyframes += picture->isKeyframe;
            counted.videoBytes += size;
        }
    }
    deliver(std::move(value), size);
}

void PhoneConnection::Link::deliver(Event::Case value, std::size_t size) {
    constexpr std::size_t overhead = sizeof(Event);
    const Lock hold(mutex);
    waiting.emplace_back(Event{arrival, std::move(value)}, size + overhead);
    waitingBytes += size + overhead;
    changed.notify_all();
}

std::optional<Event> PhoneConnection::Link::next(Duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock hold(mutex);
    if (!changed.wait_until(hold, deadline, [&] { return !waiting.empty() || ended; }) ||
        waiting.empty()) {
        return std::nullopt;
    }
    auto [event, size] = std::move(waiting.front());
    waiting.pop_front();
    const bool wasFull = waitingBytes > maxWaitingBytes;
    waitingBytes -= size;
    if (wasFull && waitingBytes <= maxWaitingBytes) {
        queue.post(onQueue([](Link& self) {
            self.queue.assertCurrent();
            self.startReading();
        }));
    }
    return std::move(event);
}

void PhoneConnection::Link::pauseReading(bool pause) {
    runAndWait([pause](Link& self) {
        self.queue.assertCurrent();
        {
            const Lock hold(self.mutex);
            self.paused = pause;
        }
        if (!pause) self.startReading();
    });
}

// --- Sending ---

void PhoneConnection::Link::enqueue(Bytes bytes, const Lock&) {
    if (ended || !isConnected) return;
    if (!withheld.empty()) bytes.insert(bytes.begin(), withheld.begin(), withheld.end());
    withheld.clear();
    outbox.push_back(std::move(bytes));
    ++unsent;
    queue.post(onQueue([](Link& self) {
        self.queue.assertCurrent();
        self.startWriting();
    }));
}

void PhoneConnection::Link::send(Bytes bytes) {
    const Lock hold(mutex);
    enqueue(std::move(bytes), hold);
}

// Sealing and queueing under one lock keeps the boxes on the wire in the order of their counters.
void PhoneConnection::Link::sendInner(FrameBuffer frame) {
    const Lock hold(mutex);
    if (!session || ended) return;
    const ByteView bytes = session->sealFrame(frame);
    enqueue(Bytes(bytes.begin(), bytes.end()), hold);
}

void PhoneConnection::Link::sendSealed(ByteView plaintext) {
    const Lock hold(mutex);
    if (!session || ended) return;
    enqueue(Framing::encode(FrameKind::sealed, session->seal(plaintext)), hold);
}

Bytes PhoneConnection::Link::seal(ByteView plaintext) {
    const Lock hold(mutex);
    return session ? session->seal(plaintext) : Bytes{};
}

void PhoneConnection::Link::startWriting() {
    if (isWriting) return;
    {
        const Lock hold(mutex);
        if (ended || writeFailed) return;
        if (outbox.empty()) {
            error_code ignored;
            if (endsSending) socket.shutdown(tcp::socket::shutdown_send, ignored);
            return;
        }
        output = std::move(outbox.front());
        outbox.pop_front();
    }
    isWriting = true;
    asio::async_write(socket, asio::buffer(output),
                      onQueue([](Link& self, const error_code& error, std::size_t length) {
                          self.queue.assertCurrent();
                          self.isWriting = false;
                          {
                              const Lock hold(self.mutex);
                              self.counted.bytesSent += length;
                              --self.unsent;
                              self.writeFailed = static_cast<bool>(error);
                              self.changed.notify_all();
                          }
                          self.startWriting();
                      }));
}

bool PhoneConnection::Link::flush(Duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock hold(mutex);
    changed.wait_until(hold, deadline, [&] { return unsent == 0 || writeFailed || ended; });
    return unsent == 0 && !writeFailed && isConnected;
}

void PhoneConnection::Link::shutdownSending() {
    queue.post(onQueue([](Link& self) {
        self.queue.assertCurrent();
        {
            const Lock hold(self.mutex);
            self.endsSending = true;
        }
        self.startWriting();
    }));
}

// --- The end ---

void PhoneConnection::Link::end(Closed why) {
    {
        const Lock hold(mutex);
        if (ended) return;
        ended = why;
        waiting.emplace_back(Event{std::chrono::steady_clock::now(), std::move(why)}, 0);
        changed.notify_all();
    }
    initiator.reset();
    resolver.cancel();
    error_code ignored;
    socket.shutdown(tcp::socket::shutdown_send, ignored);
    socket.close(ignored);
}

void PhoneConnection::Link::close() {
    runAndWait([](Link& self) {
        self.queue.assertCurrent();
        self.end({Closed::Reason::closedHere, ""});
    });
}

void PhoneConnection::Link::abort() {
    runAndWait([](Link& self) {
        self.queue.assertCurrent();
        error_code ignored;
        self.socket.set_option(asio::socket_base::linger(true, 0), ignored);
        self.socket.close(ignored);
        self.end({Closed::Reason::closedHere, ""});
    });
}

template <class Body>
void PhoneConnection::Link::runAndWait(Body body) {
    bool done = false;
    queue.post(onQueue([body = std::move(body), &done](Link& self) {
        body(self);
        const Lock hold(self.mutex);
        done = true;
        self.changed.notify_all();
    }));
    Lock hold(mutex);
    changed.wait(hold, [&] { return done; });
}

std::optional<Closed> PhoneConnection::Link::closed() const {
    const Lock hold(mutex);
    return ended;
}

PhoneConnection::Counts PhoneConnection::Link::counts() const {
    const Lock hold(mutex);
    return counted;
}

std::optional<SecureHandshake::Result> PhoneConnection::Link::peer() const {
    const Lock hold(mutex);
    if (!secured) return std::nullopt;
    return SecureHandshake::Result{nullptr, secured->peerKey, secured->code};
}

MonotonicTime PhoneConnection::Link::timeOf(MonotonicTime Link::*moment) const {
    const Lock hold(mutex);
    return this->*moment;
}

bool PhoneConnection::Link::isSameMachine() const {
    const Lock hold(mutex);
    return sameMachine;
}

// --- The outside ---

PhoneConnection::PhoneConnection(Identity identity)
    : ownIdentity(std::move(identity)),
      queue(std::make_unique<SerialQueue>("orvel.phone")),
      link(std::make_shared<Link>(*queue)) {}

PhoneConnection::~PhoneConnection() {
    close();
}

bool PhoneConnection::connect(const std::string& host, std::uint16_t port, Duration timeout,
                              int receiveBuffer) {
    return link->connect(host, port, timeout, receiveBuffer);
}
bool PhoneConnection::secure(Duration timeout, bool withholdReveal) {
    return link->secure(ownIdentity, timeout, withholdReveal);
}

std::string PhoneConnection::code() const {
    const auto peer = link->peer();
    return peer ? peer->code : std::string();
}
std::string PhoneConnection::agentID() const {
    const auto peer = link->peer();
    return peer ? Identity::fingerprint(peer->peerKey) : std::string();
}
Bytes PhoneConnection::agentKey() const {
    const auto peer = link->peer();
    return peer ? peer->peerKey : Bytes();
}

MonotonicTime PhoneConnection::connectStartedAt() const {
    return link->timeOf(&Link::connectStarted);
}
MonotonicTime PhoneConnection::connectedAt() const {
    return link->timeOf(&Link::connected);
}

bool PhoneConnection::isSameMachine() const {
    return link->isSameMachine();
}

Hello PhoneConnection::hello(std::string deviceName, std::optional<std::string> pin) const {
    Hello hello;
    hello.deviceID = ownIdentity.fingerprint();
    hello.deviceName = std::move(deviceName);
    hello.pin = std::move(pin);
    hello.publicKey = ownIdentity.publicKey();
    return hello;
}

void PhoneConnection::send(const Control& control) {
    link->sendInner(FrameBuffer::control(control));
}

std::optional<Event> PhoneConnection::next(Duration timeout) {
    return link->next(timeout);
}
std::optional<Closed> PhoneConnection::closed() const {
    return link->closed();
}
std::optional<Closed> PhoneConnection::waitClosed(Duration timeout) {
    if (auto seen = waitFor<Closed>(timeout)) return seen;
    return closed();  // its event was taken before
}

void PhoneConnection::close(Duration patience) {
    if (!closed()) link->flush(patience);
    link->close();
}

PhoneConnection::Counts PhoneConnection::counts() const {
    return link->counts();
}

void PhoneConnection::sendRaw(ByteView bytes) {
    link->send(Bytes(bytes.begin(), bytes.end()));
}
void PhoneConnection::sendFrame(FrameKind kind, ByteView payload) {
    link->send(Framing::encode(kind, payload));
}
void PhoneConnection::sendInner(FrameKind kind, ByteView payload) {
    link->sendInner(FrameBuffer(kind, payload));
}
void PhoneConnection::sendSealed(ByteView plaintext) {
    link->sendSealed(plaintext);
}
Bytes PhoneConnection::seal(ByteView plaintext) {
    return link->seal(plaintext);
}
void PhoneConnection::pauseReading(bool paused) {
    link->pauseReading(paused);
}
bool PhoneConnection::flush(Duration timeout) {
    return link->flush(timeout);
}
void PhoneConnection::shutdownSending() {
    link->shutdownSending();
}
void PhoneConnection::abort() {
    link->abort();
}

}  // namespace orvel::phone
