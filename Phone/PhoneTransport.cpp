#include "Phone/PhoneTransport.h"

#include <boost/asio/write.hpp>

#include "OrvelKit/Base/QueueIo.h"

namespace orvel::phone {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Closed = PhoneConnection::Closed;
using Event = PhoneConnection::Event;

constexpr std::size_t maxWaitingBytes = 64 << 20;
// Of these of files: pictures come in the same row, and age behind them.
constexpr std::size_t maxWaitingFileBytes = 2 << 20;
constexpr std::size_t inputLength = 256 << 10;  // of a read: a few frames of a download

struct FrameView {
    FrameKind kind;
    std::span<std::uint8_t> payload;
};

// The frame that lies whole at the front of `bytes`. nullopt: it is not whole, or the parser has to
// judge it.
std::optional<FrameView> wholeFrame(std::span<std::uint8_t> bytes) {
    if (bytes.size() < Frame::headerLength) return std::nullopt;
    const std::size_t length = loadBE32(&bytes[1]);
    if (length > Frame::maxPayload || bytes.size() - Frame::headerLength < length ||
        bytes[0] < static_cast<std::uint8_t>(FrameKind::control) ||
        bytes[0] > static_cast<std::uint8_t>(FrameKind::audio)) {
        return std::nullopt;
    }
    return FrameView{FrameKind{bytes[0]}, bytes.subspan(Frame::headerLength, length)};
}

Closed afterReadError(const error_code& error) {
    if (error == asio::error::eof) return {Closed::Reason::closedByAgent, ""};
    return {Closed::Reason::reset, error.message()};
}

}  // namespace

PhoneTransport::PhoneTransport(SerialQueue& transportQueue)
    : queue(transportQueue),
      socket(ioContext(transportQueue)),
      resolver(ioContext(transportQueue)),
      input(inputLength) {}

template <class Body>
auto PhoneTransport::onQueue(Body body) {
    return [self = shared_from_this(), body = std::move(body)](auto&&... arguments) mutable {
        self->queue.assertCurrent();
        body(*self, std::forward<decltype(arguments)>(arguments)...);
    };
}

// --- Connecting and the handshake ---

bool PhoneTransport::connect(const std::string& host, std::uint16_t port, Duration timeout,
                             int bufferSize) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    {
        const Lock hold(mutex);
        connectStarted = std::chrono::steady_clock::now();
    }
    error_code notNumeric;
    const auto address = asio::ip::make_address(host, notNumeric);
    queue.post(onQueue([=](PhoneTransport& self) {
        self.queue.assertCurrent();
        if (!notNumeric) return self.tryEndpoint({{address, port}}, 0, bufferSize, {});
        self.resolver.async_resolve(
            host, std::to_string(port),
            self.onQueue([bufferSize](PhoneTransport& same, const error_code& error,
                                      const tcp::resolver::results_type& results) {
                same.queue.assertCurrent();
                if (error) return same.end({Closed::Reason::noAddress, error.message()});
                same.tryEndpoint({results.begin(), results.end()}, 0, bufferSize, {});
            }));
    }));
    Lock hold(mutex);
    if (!changed.wait_until(hold, deadline, [&] { return isConnected || ended; })) {
        hold.unlock();
        runAndWait([](PhoneTransport& self) {
            self.queue.assertCurrent();
            self.end({Closed::Reason::notConnected, "no answer in time"});
        });
        hold.lock();
    }
    return isConnected;
}

void PhoneTransport::tryEndpoint(std::vector<tcp::endpoint> endpoints, std::size_t index,
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
                                               PhoneTransport& self, error_code failure) mutable {
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

bool PhoneTransport::secure(const Identity& identity, Duration timeout, bool withholdReveal) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    queue.post(onQueue([identity, withholdReveal](PhoneTransport& self) {
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
        runAndWait([](PhoneTransport& self) {
            self.queue.assertCurrent();
            self.end({Closed::Reason::timedOut, ""});
        });
        hold.lock();
    }
    return secured.has_value();
}

void PhoneTransport::receiveKeys(ByteView payload) {
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
void PhoneTransport::startReading() {
    if (isReading) return;
    {
        const Lock hold(mutex);
        if (ended || paused || isFull(hold)) return;
    }
    isReading = true;
    socket.async_wait(tcp::socket::wait_read,
                      onQueue([](PhoneTransport& self, const error_code& error) {
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

void PhoneTransport::readAvailable() {
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
        receive(std::span(input).first(length));
    } catch (const std::exception& nonsense) {
        end({Closed::Reason::nonsense, nonsense.what()});
    }
}

// A download is worth it: a sealed frame that came whole is opened where it lies in the receive
// buffer, and its content is copied once. Only what comes in pieces is put together first.
void PhoneTransport::receive(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        if (!isOuterBegun && isSealing()) {
            if (const auto frame = wholeFrame(bytes)) {
                bytes = bytes.subspan(Frame::headerLength + frame->payload.size());
                receiveSealed(frame->kind, frame->payload);
                continue;
            }
        }
        ByteView rest = bytes;
        auto frame = outer.next(rest, {});
        bytes = bytes.last(rest.size());
        isOuterBegun = !frame;
        if (frame) receiveFrame(*std::move(frame));
    }
}

bool PhoneTransport::isSealing() const {
    const Lock hold(mutex);
    return session != nullptr;
}

void PhoneTransport::receiveFrame(Frame frame) {
    if (isSealing()) return receiveSealed(frame.kind, frame.payload);
    if (frame.kind != FrameKind::handshake) {
        throw FramingError::unknownKind(static_cast<std::uint8_t>(frame.kind));
    }
    if (initiator) return receiveKeys(frame.payload);
    const std::size_t size = frame.payload.size();
    deliver(std::move(frame), size);
}

void PhoneTransport::receiveSealed(FrameKind kind, std::span<std::uint8_t> box) {
    if (kind != FrameKind::sealed) {
        throw FramingError::unknownKind(static_cast<std::uint8_t>(kind));
    }
    const ByteView opened = session->openInPlace(box);
    std::span<std::uint8_t> plaintext = box.first(opened.size());
    while (!plaintext.empty()) {
        if (!isInnerBegun) {
            if (const auto frame = wholeFrame(plaintext)) {
                plaintext = plaintext.subspan(Frame::headerLength + frame->payload.size());
                receiveInner(frame->kind, frame->payload);
                continue;
            }
        }
        ByteView rest = plaintext;
        const auto frame = inner.next(rest, {});
        plaintext = plaintext.last(rest.size());
        isInnerBegun = !frame;
        if (frame) receiveInner(frame->kind, frame->payload);
    }
}

void PhoneTransport::receiveInner(FrameKind kind, ByteView payload) {
    Event::Case value = Event::decode(kind, payload);
    {
        const Lock hold(mutex);
        counted.controls += kind == FrameKind::control;
        counted.videoFormats += kind == FrameKind::videoFormat;
        counted.audioPackets += kind == FrameKind::audio;
        counted.fileFrames += kind == FrameKind::file;
        if (const auto* picture = std::get_if<VideoFrame>(&value)) {
            ++counted.videoFrames;
            counted.keyframes += picture->isKeyframe;
            counted.videoBytes += payload.size();
        }
    }
    deliver(std::move(value), payload.size());
}

void PhoneTransport::deliver(Event::Case value, std::size_t size) {
    constexpr std::size_t overhead = sizeof(Event);
    const Lock hold(mutex);
    if (std::holds_alternative<FileFrame>(value)) waitingFileBytes += size + overhead;
    waiting.emplace_back(Event{arrival, std::move(value)}, size + overhead);
    waitingBytes += size + overhead;
    changed.notify_all();
}

bool PhoneTransport::isFull(const Lock&) const {
    return waitingBytes > maxWaitingBytes || waitingFileBytes > maxWaitingFileBytes;
}

std::optional<Event> PhoneTransport::next(Duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock hold(mutex);
    if (!changed.wait_until(hold, deadline, [&] { return !waiting.empty() || ended; }) ||
        waiting.empty()) {
        return std::nullopt;
    }
    auto [event, size] = std::move(waiting.front());
    waiting.pop_front();
    const bool wasFull = isFull(hold);
    waitingBytes -= size;
    if (event.as<FileFrame>()) waitingFileBytes -= size;
    if (wasFull && !isFull(hold)) {
        queue.post(onQueue([](PhoneTransport& self) {
            self.queue.assertCurrent();
            self.startReading();
        }));
    }
    return std::move(event);
}

void PhoneTransport::pauseReading(bool pause) {
    runAndWait([pause](PhoneTransport& self) {
        self.queue.assertCurrent();
        {
            const Lock hold(self.mutex);
            self.paused = pause;
        }
        if (!pause) self.startReading();
    });
}

// --- Sending ---

void PhoneTransport::enqueue(Bytes bytes, const Lock&) {
    if (ended || !isConnected) return;
    if (!withheld.empty()) bytes.insert(bytes.begin(), withheld.begin(), withheld.end());
    withheld.clear();
    outbox.push_back(std::move(bytes));
    ++unsent;
    queue.post(onQueue([](PhoneTransport& self) {
        self.queue.assertCurrent();
        self.startWriting();
    }));
}

void PhoneTransport::send(Bytes bytes) {
    const Lock hold(mutex);
    enqueue(std::move(bytes), hold);
}

// Sealing and queueing under one lock keeps the boxes on the wire in the order of their counters.
void PhoneTransport::sendInner(FrameBuffer frame) {
    const Lock hold(mutex);
    if (!session || ended) return;
    const ByteView bytes = session->sealFrame(frame);
    enqueue(Bytes(bytes.begin(), bytes.end()), hold);
}

void PhoneTransport::sendSealed(ByteView plaintext) {
    const Lock hold(mutex);
    if (!session || ended) return;
    enqueue(Framing::encode(FrameKind::sealed, session->seal(plaintext)), hold);
}

Bytes PhoneTransport::seal(ByteView plaintext) {
    const Lock hold(mutex);
    return session ? session->seal(plaintext) : Bytes{};
}

void PhoneTransport::startWriting() {
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
    asio::async_write(
        socket, asio::buffer(output),
        onQueue([](PhoneTransport& self, const error_code& error, std::size_t length) {
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

bool PhoneTransport::flush(Duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock hold(mutex);
    changed.wait_until(hold, deadline, [&] { return unsent == 0 || writeFailed || ended; });
    return unsent == 0 && !writeFailed && isConnected;
}

void PhoneTransport::shutdownSending() {
    queue.post(onQueue([](PhoneTransport& self) {
        self.queue.assertCurrent();
        {
            const Lock hold(self.mutex);
            self.endsSending = true;
        }
        self.startWriting();
    }));
}

// --- The end ---

void PhoneTransport::end(Closed why) {
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

void PhoneTransport::close() {
    runAndWait([](PhoneTransport& self) {
        self.queue.assertCurrent();
        self.end({Closed::Reason::closedHere, ""});
    });
}

void PhoneTransport::abort() {
    runAndWait([](PhoneTransport& self) {
        self.queue.assertCurrent();
        error_code ignored;
        self.socket.set_option(asio::socket_base::linger(true, 0), ignored);
        self.socket.close(ignored);
        self.end({Closed::Reason::closedHere, ""});
    });
}

template <class Body>
void PhoneTransport::runAndWait(Body body) {
    bool done = false;
    queue.post(onQueue([body = std::move(body), &done](PhoneTransport& self) {
        body(self);
        const Lock hold(self.mutex);
        done = true;
        self.changed.notify_all();
    }));
    Lock hold(mutex);
    changed.wait(hold, [&] { return done; });
}

std::optional<Closed> PhoneTransport::closed() const {
    const Lock hold(mutex);
    return ended;
}

PhoneConnection::Counts PhoneTransport::counts() const {
    const Lock hold(mutex);
    return counted;
}

std::optional<SecureHandshake::Result> PhoneTransport::peer() const {
    const Lock hold(mutex);
    if (!secured) return std::nullopt;
    return SecureHandshake::Result{nullptr, secured->peerKey, secured->code};
}

MonotonicTime PhoneTransport::connectStartedAt() const {
    const Lock hold(mutex);
    return connectStarted;
}

MonotonicTime PhoneTransport::connectedAt() const {
    const Lock hold(mutex);
    return connected;
}

bool PhoneTransport::isSameMachine() const {
    const Lock hold(mutex);
    return sameMachine;
}

}  // namespace orvel::phone
