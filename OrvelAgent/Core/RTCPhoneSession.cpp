#include "OrvelAgent/Core/RTCPhoneSession.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "OrvelKit/Wire/Files.h"

namespace orvel {

RTCPhoneSession::RTCPhoneSession(SerialQueue& sessionQueue, const PeerConnection::Factory& makePeer,
                                 std::string deviceID, std::string session,
                                 const PeerConnection::Configuration& configuration)
    : queue(sessionQueue),
      phoneID(std::move(deviceID)),
      conversation(std::move(session)),
      peer(makePeer(configuration, sessionQueue)) {}

void RTCPhoneSession::listen() {
    const auto onSelf = [this](auto body) {
        return [weak = weak_from_this(), body](auto&&... arguments) {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            if (!self->ended) body(*self, std::forward<decltype(arguments)>(arguments)...);
        };
    };
    using Self = RTCPhoneSession;
    peer->onAnswer = onSelf([](Self& self, std::string sdp) {
        self.queue.assertCurrent();
        self.answered(std::move(sdp));
    });
    peer->onRefusal = onSelf([](Self& self) {
        self.queue.assertCurrent();
        self.end();
    });
    peer->onCandidate = onSelf([](Self& self, IceCandidate candidate) {
        self.queue.assertCurrent();
        self.found(std::move(candidate));
    });
    peer->onState = onSelf([](Self& self, PeerConnection::State state) {
        self.queue.assertCurrent();
        self.stateChanged(state);
    });
    peer->onChannel = onSelf([](Self& self, Channel channel, bool isOpen) {
        self.queue.assertCurrent();
        if (channel == Channel::control && !isOpen) return self.end();
        if (channel == Channel::files && isOpen) self.sendFiles();
    });
    peer->onMessage = onSelf([](Self& self, const Bytes& message) {
        self.queue.assertCurrent();
        self.received(message);
    });
    peer->onDrained = onSelf([](Self& self, Channel channel) {
        self.queue.assertCurrent();
        if (channel == Channel::files) self.sendFiles();
    });
}

void RTCPhoneSession::accept(std::string offer) {
    queue.assertCurrent();
    if (ended || std::exchange(offered, true)) return;
    listen();
    peer->accept(std::move(offer));
}

void RTCPhoneSession::add(const IceCandidate& candidate) {
    queue.assertCurrent();
    if (!ended) peer->add(candidate);
}

void RTCPhoneSession::answered(std::string sdp) {
    hasAnswered = true;
    const auto candidates = std::exchange(early, {});
    if (onSignal) onSignal({SignalMessage::Answer{std::move(sdp)}});
    for (const auto& candidate : candidates) {
        if (!ended && onSignal) onSignal({SignalMessage::Candidate{candidate}});
    }
}

// A phone cannot use candidates before it has the answer.
void RTCPhoneSession::found(IceCandidate candidate) {
    if (!hasAnswered) {
        early.push_back(std::move(candidate));
    } else if (onSignal) {
        onSignal({SignalMessage::Candidate{std::move(candidate)}});
    }
}

void RTCPhoneSession::stateChanged(PeerConnection::State state) {
    switch (state) {
        case PeerConnection::State::connected:
            disconnectTimer.cancel();
            return;
        case PeerConnection::State::disconnected:
            disconnectTimer = queue.after(disconnectGrace, [weak = weak_from_this()] {
                if (auto self = weak.lock()) self->close();
            });
            return;
        case PeerConnection::State::failed:
            return end();
    }
}

void RTCPhoneSession::received(const Bytes& message) {
    if (rejected || !onControl || message.size() > PeerConnection::maxMessageBytes) return;
    try {
        onControl(Control::fromJson(textOf(message)));
    } catch (const ControlError&) {
    }
}

bool RTCPhoneSession::hasEnded() const {
    queue.assertCurrent();
    return ended;
}
bool RTCPhoneSession::isAuthenticated() const {
    queue.assertCurrent();
    return authenticated;
}
void RTCPhoneSession::setAuthenticated(bool value) {
    queue.assertCurrent();
    authenticated = value;
}
const std::string& RTCPhoneSession::name() const {
    queue.assertCurrent();
    return phoneName;
}
void RTCPhoneSession::setName(const std::string& value) {
    queue.assertCurrent();
    phoneName = value;
}

PeerConnection::PictureSink RTCPhoneSession::pictureSink() {
    queue.assertCurrent();
    return peer->pictureSink();
}

void RTCPhoneSession::queryVideo(std::function<void(PeerConnection::VideoStatistics)> completion) {
    queue.assertCurrent();
    if (!ended) peer->queryVideo(std::move(completion));
}

void RTCPhoneSession::sendControl(const Control& control) {
    queue.assertCurrent();
    if (ended || !peer->isOpen(Channel::control)) return;
    const auto json = control.toJson();
    if (json.size() > maxControlBytes) {
        std::fprintf(stderr, "orvel: %s of %zu bytes is too long for the internet, left out\n",
                     control.as<Control::Clipboard>() ? "a clipboard" : "a message", json.size());
        return;
    }
    peer->send(Channel::control, bytesOf(json), Form::text);
    if (peer->bufferedAmount(Channel::control) <= maxControlBacklog) return;
    std::fprintf(stderr, "orvel: a phone does not read its answers, its link ends\n");
    // Not from inside the caller's business: it may be in the middle of using this link.
    queue.post([weak = weak_from_this()] {
        if (auto self = weak.lock()) self->close();
    });
}

void RTCPhoneSession::sendAudio(const AudioPacket& packet) {
    queue.assertCurrent();
    if (ended || !peer->isOpen(Channel::audio) ||
        peer->bufferedAmount(Channel::audio) >= audioCeiling) {
        return;
    }
    const auto frame = packet.encode();
    peer->send(Channel::audio, frame.payload(), Form::binary);
}

std::int64_t RTCPhoneSession::fileBacklog() const {
    queue.assertCurrent();
    return fileBytes + peer->bufferedAmount(Channel::files);
}

void RTCPhoneSession::sendFile(FrameBuffer frame, UniqueFunction<void()> completion) {
    queue.assertCurrent();
    if (ended) return;
    constexpr std::uint8_t dataType = 2;
    constexpr auto header = FileFrame::dataHeaderLength;
    const ByteView whole = std::as_const(frame).payload();
    if (whole.size() <= fileMessageBytes || whole[0] != dataType) {
        queueFile(std::move(frame), std::move(completion));
    } else {
        const auto id = loadBE32(whole.data() + 1);
        for (auto rest = whole.subspan(header); !rest.empty();) {
            const auto piece = rest.first(std::min(rest.size(), fileMessageBytes - header));
            rest = rest.subspan(piece.size());
            auto message = FileFrame::dataBuffer(id, piece.size());
            std::memcpy(message.payload() + header, piece.data(), piece.size());
            queueFile(std::move(message),
                      rest.empty() ? std::move(completion) : UniqueFunction<void()>());
        }
    }
    sendFiles();
}

void RTCPhoneSession::queueFile(FrameBuffer frame, UniqueFunction<void()> completion) {
    fileBytes += static_cast<std::int64_t>(frame.payloadLength());
    files.push_back({std::move(frame), std::move(completion)});
}

void RTCPhoneSession::sendFiles() {
    while (!ended && !files.empty() && peer->isOpen(Channel::files) &&
           peer->bufferedAmount(Channel::files) < filesAhead) {
        const auto message = std::move(files.front());
        files.pop_front();
        fileBytes -= static_cast<std::int64_t>(message.frame.payloadLength());
        peer->send(Channel::files, message.frame.payload(), Form::binary);
        if (message.completion) message.completion();  // may send more, or end this
    }
}

void RTCPhoneSession::sendVideo(FrameBuffer, bool, UniqueFunction<void()> completion) {
    queue.assertCurrent();
    if (completion && !ended) completion();  // this link takes pixels
}

void RTCPhoneSession::reject(Rejection reason) {
    queue.assertCurrent();
    if (ended || std::exchange(rejected, true)) return;
    sendControl({Control::Rejected{reason}});
    rejectionTimer = queue.after(rejectionTime, [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->close();
    });
}

void RTCPhoneSession::close() {
    queue.assertCurrent();
    end();
}

void RTCPhoneSession::end() {
    const auto self = shared_from_this();  // onEnd may drop the owner's reference
    if (std::exchange(ended, true)) return;
    disconnectTimer.cancel();
    rejectionTimer.cancel();
    files.clear();
    fileBytes = 0;
    peer->close();
    if (onEnd) onEnd();
}

}  // namespace orvel
