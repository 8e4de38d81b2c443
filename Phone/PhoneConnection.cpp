#include "Phone/PhoneConnection.h"

#include <utility>

#include "Phone/PhoneTransport.h"

namespace orvel::phone {

PhoneConnection::PhoneConnection(Identity identity)
    : ownIdentity(std::move(identity)),
      queue(std::make_unique<SerialQueue>("orvel.phone")),
      transport(std::make_shared<PhoneTransport>(*queue)) {}

PhoneConnection::~PhoneConnection() {
    close();
}

bool PhoneConnection::connect(const std::string& host, std::uint16_t port, Duration timeout,
                              int receiveBuffer) {
    return transport->connect(host, port, timeout, receiveBuffer);
}
bool PhoneConnection::secure(Duration timeout, bool withholdReveal) {
    return transport->secure(ownIdentity, timeout, withholdReveal);
}

std::string PhoneConnection::code() const {
    const auto peer = transport->peer();
    return peer ? peer->code : std::string();
}
std::string PhoneConnection::agentID() const {
    const auto peer = transport->peer();
    return peer ? Identity::fingerprint(peer->peerKey) : std::string();
}
Bytes PhoneConnection::agentKey() const {
    const auto peer = transport->peer();
    return peer ? peer->peerKey : Bytes();
}

MonotonicTime PhoneConnection::connectStartedAt() const {
    return transport->connectStartedAt();
}
MonotonicTime PhoneConnection::connectedAt() const {
    return transport->connectedAt();
}

bool PhoneConnection::isSameMachine() const {
    return transport->isSameMachine();
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
    transport->sendInner(FrameBuffer::control(control));
}

std::optional<PhoneConnection::Event> PhoneConnection::next(Duration timeout) {
    return transport->next(timeout);
}
std::optional<PhoneConnection::Closed> PhoneConnection::closed() const {
    return transport->closed();
}
std::optional<PhoneConnection::Closed> PhoneConnection::waitClosed(Duration timeout) {
    if (auto seen = waitFor<Closed>(timeout)) return seen;
    return closed();  // its event was taken before
}

void PhoneConnection::close(Duration patience) {
    if (!closed()) transport->flush(patience);
    transport->close();
}

PhoneConnection::Counts PhoneConnection::counts() const {
    return transport->counts();
}

void PhoneConnection::sendRaw(ByteView bytes) {
    transport->send(Bytes(bytes.begin(), bytes.end()));
}
void PhoneConnection::sendFrame(FrameKind kind, ByteView payload) {
    transport->send(Framing::encode(kind, payload));
}
void PhoneConnection::sendInner(FrameKind kind, ByteView payload) {
    transport->sendInner(FrameBuffer(kind, payload));
}
void PhoneConnection::sendSealed(ByteView plaintext) {
    transport->sendSealed(plaintext);
}
Bytes PhoneConnection::seal(ByteView plaintext) {
    return transport->seal(plaintext);
}
void PhoneConnection::pauseReading(bool paused) {
    transport->pauseReading(paused);
}
bool PhoneConnection::flush(Duration timeout) {
    return transport->flush(timeout);
}
void PhoneConnection::shutdownSending() {
    transport->shutdownSending();
}
void PhoneConnection::abort() {
    transport->abort();
}

}  // namespace orvel::phone
