#include "OrvelAgent/Core/ClientSession.h"

#include <cstdio>

namespace orvel {

namespace {

// The peer broke the rules of the session; what exactly is nobody's business but the debugger's.
struct ProtocolViolation : std::exception {
    const char* what() const noexcept override { return "protocol violation"; }
};

}  // namespace

ClientSession::ClientSession(SerialQueue& sessionQueue, std::unique_ptr<Connection> accepted,
                             Identity identity)
    : queue(sessionQueue), connection(std::move(accepted)), responder(std::move(identity)) {}

void ClientSession::start() {
    queue.assertCurrent();
    deadline = queue.after(handshakeTime, [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        if (!self->secure) self->end(false);
    });
    postReceive();
}

const std::optional<Bytes>& ClientSession::peerKey() const {
    queue.assertCurrent();
    return phoneKey;
}
const std::optional<std::string>& ClientSession::pairingCode() const {
    queue.assertCurrent();
    return code;
}
bool ClientSession::hasEnded() const {
    queue.assertCurrent();
    return ended;
}
bool ClientSession::hasAnswered() const {
    queue.assertCurrent();
    return answered;
}
bool ClientSession::isAuthenticated() const {
    queue.assertCurrent();
    return authenticated;
}
void ClientSession::setAuthenticated(bool value) {
    queue.assertCurrent();
    authenticated = value;
}
const std::string& ClientSession::name() const {
    queue.assertCurrent();
    return phoneName;
}
void ClientSession::setName(const std::string& value) {
    queue.assertCurrent();
    phoneName = value;
}
std::int64_t ClientSession::fileBacklog() const {
    queue.assertCurrent();
    return fileBytes;
}

std::optional<std::string> ClientSession::deviceID() const {
    queue.assertCurrent();
    if (!phoneKey) return std::nullopt;
    return Identity::fingerprint(*phoneKey);
}

void ClientSession::postReceive() {
    connection->receive([weak = weak_from_this()](std::optional<ByteView> chunk) {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->received(chunk);
    });
}

void ClientSession::received(std::optional<ByteView> chunk) {
    if (!chunk) return end(false);
    try {
        // The limits belong to the state that the frame before left: a phone may send its reveal
        // and its hello in one go.
        while (!ended && !rejected) {
            FrameParser::Limits limits;
            limits.onlyKind = secure ? FrameKind::sealed : FrameKind::handshake;
            if (!secure) {
                limits.maxPayload = maxHandshakePayload;
            } else if (!authenticated) {
                limits.maxPayload = maxUnadmittedPayload;
            }
            auto frame = parser.next(*chunk, limits);
            if (!frame) break;
            handle(std::move(*frame));
        }
    } catch (const std::exception&) {
        return end(false);
    }
    if (!ended && !rejected) postReceive();
}

void ClientSession::handle(Frame frame) {
    if (secure) {
        handleSealed(std::move(frame.payload));
    } else {
        handleHandshake(frame.payload);
    }
}

void ClientSession::handleHandshake(ByteView message) {
    switch (++handshakeStep) {
        case 1:
            if (!onCommitted) return answerCommit(message);
            // Until the answer, a second message finds no commitment and ends the session.
            onCommitted([weak = weak_from_this(), commit = Bytes(message.begin(), message.end())] {
                auto self = weak.lock();
                if (!self) return;
                self->queue.assertCurrent();
                try {
                    if (!self->ended) self->answerCommit(commit);
                } catch (const SecureHandshake::Failure&) {
                    self->end(false);
                }
            });
            return;
        case 2: {
            auto result = responder.finish(message);
            secure = std::move(result.session);
            phoneKey = std::move(result.peerKey);
            code = std::move(result.code);
            deadline = queue.after(admissionTime, [weak = weak_from_this()] {
                auto self = weak.lock();
                if (!self) return;
                self->queue.assertCurrent();
                if (!self->authenticated) self->end(false);
            });
            if (onSecured) onSecured();
            return;
        }
        default:
            throw ProtocolViolation();
    }
}

void ClientSession::answerCommit(ByteView commit) {
    plainReply = Framing::encode(FrameKind::handshake, responder.receive(commit));
    answered = true;
    connection->send(plainReply, [weak = weak_from_this()](bool sent) {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->plainReply.clear();
        if (!sent) return self->end(false);
        self->sendNext();
    });
}

void ClientSession::handleSealed(Bytes box) {
    ByteView plaintext = secure->openInPlace(box);
    while (!ended && !rejected) {
        const FrameParser::Limits limits{
            std::nullopt, authenticated ? Framing::maxPayload : maxUnadmittedPayload};
        const auto frame = inner.next(plaintext, limits);
        if (!frame) return;
        if (frame->kind != FrameKind::control) continue;  // known, but nothing for an agent
        auto control = Framing::decodeControl(frame->payload);
        if (onControl) onControl(std::move(control));
    }
}

void ClientSession::send(FrameBuffer frame, bool isKeyframe, UniqueFunction<void()> completion) {
    // Nothing but the handshake leaves before the channel is sealed. The completion is dropped
    // too: whoever counts what is outstanding only sends after the admission.
    if (!secure || ended || outbound.isOverfull()) return;
    outbound.push({std::move(frame), std::move(completion), isKeyframe});
    if (outbound.isOverfull()) {
        std::fprintf(stderr, "orvel: a phone does not read its answers, its link ends\n");
        // Not from inside the caller's business: it may be in the middle of using this link.
        queue.post([weak = weak_from_this()] {
            if (auto self = weak.lock()) self->close();
        });
        return;
    }
    sendNext();
}

void ClientSession::sendNext() {
    if (ended || !secure || sending || !plainReply.empty()) return;
    sending = outbound.pop();
    if (!sending) return;
    connection->send(secure->sealFrame(sending->frame), [weak = weak_from_this()](bool sent) {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        if (self->ended) return;
        const auto completion = std::move(self->sending->completion);
        self->sending.reset();
        if (!sent) return self->end(false);
        if (completion) completion();
        self->sendNext();
    });
}

void ClientSession::restartVideo() {
    queue.assertCurrent();
    outbound.restartVideo();
}

void ClientSession::sendAudio(const AudioPacket& packet) {
    queue.assertCurrent();
    if (audioOutstanding >= maxAudioOutstanding || !secure || ended) return;
    ++audioOutstanding;
    send(packet.encode(), false, [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        --self->audioOutstanding;
    });
}

void ClientSession::sendControl(const Control& control) {
    queue.assertCurrent();
    send(FrameBuffer::control(control), false, {});
}

void ClientSession::sendFile(FrameBuffer frame, UniqueFunction<void()> completion) {
    queue.assertCurrent();
    const auto bytes = static_cast<std::int64_t>(frame.payloadLength());
    fileBytes += bytes;
    send(std::move(frame), false,
         [weak = weak_from_this(), bytes, completion = std::move(completion)] {
             if (auto self = weak.lock()) {
                 self->queue.assertCurrent();
                 self->fileBytes -= bytes;
             }
             if (completion) completion();
         });
}

void ClientSession::sendVideo(FrameBuffer frame, bool isKeyframe,
                              UniqueFunction<void()> completion) {
    queue.assertCurrent();
    send(std::move(frame), isKeyframe, std::move(completion));
}

void ClientSession::reject(Rejection reason) {
    queue.assertCurrent();
    rejected = true;
    deadline = queue.after(rejectionTime, [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->close();
    });
    send(FrameBuffer::control({Control::Rejected{reason}}), false, [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->end(true);
    });
}

void ClientSession::close() {
    queue.assertCurrent();
    end(false);
}

void ClientSession::end(bool readingPeer) {
    const auto self = shared_from_this();  // onEnd may drop the owner's reference
    if (readingPeer && !ended) {
        connection->finish();
    } else {
        connection->cancel();
    }
    if (std::exchange(ended, true)) return;
    deadline.cancel();
    if (onEnd) onEnd();
}

}  // namespace orvel
