#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Core/Connection.h"
#include "OrvelAgent/Core/OutboundQueue.h"
#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Secure/SecureHandshake.h"

namespace orvel {

// One phone connected over the local network: the responder's side of the handshake, then sealed
// frames whose plaintext is a stream of frames.
//
//   connecting -> handshaking -> secured -> admitted -> ended; any state may go straight to ended:
//   by a timeout, a violation of the protocol, the connection's end, a rejection or close().
//
// Whatever the peer sends, the answer to nonsense is the end of the connection, without a message.
// Belongs to the queue given to it; every call and callback is there.
class ClientSession final : public PhoneLink, public std::enable_shared_from_this<ClientSession> {
public:
    static constexpr std::chrono::seconds handshakeTime{10};  // from start() to the handshake's end
    static constexpr std::chrono::seconds admissionTime{180};    // from there to the admission
    static constexpr std::size_t maxHandshakePayload = 64;       // before the channel is sealed
    static constexpr std::size_t maxUnadmittedPayload = 65'536;  // sealed, before the admission
    static constexpr std::chrono::seconds rejectionTime{10};     // for a rejection to leave
    static constexpr int maxAudioOutstanding = 8;

    ClientSession(SerialQueue& queue, std::unique_ptr<Connection> connection, Identity identity);

    // Installed before start(). The owner keeps the session alive until onEnd was called, which
    // happens once; no other callback comes after it.
    // Optional: asked when the phone has committed to its keys; the agent's keys leave when the
    // function that it is given is called, which may be never.
    std::function<void(UniqueFunction<void()> answer)> onCommitted;
    std::function<void()> onSecured;  // peerKey() and pairingCode() are known
    std::function<void(Control)> onControl;
    std::function<void()> onEnd;

    void start();

    const std::optional<Bytes>& peerKey() const;
    const std::optional<std::string>& pairingCode() const;
    std::string remoteAddress() const { return connection->remoteAddress(); }
    bool hasEnded() const;
    // The agent's keys have left, so that the pairing code is known to the peer.
    bool hasAnswered() const;

    // A fresh welcome begins a new video stream: see OutboundQueue::restartVideo().
    void restartVideo();

    bool isAuthenticated() const override;
    void setAuthenticated(bool value) override;
    const std::string& name() const override;
    void setName(const std::string& value) override;
    std::optional<std::string> deviceID() const override;
    bool wantsEncodedVideo() const override { return true; }
    bool isInternet() const override { return false; }
    std::size_t longestControl() const override { return FrameBuffer::longestSealed; }
    std::int64_t fileBacklog() const override;
    void sendAudio(const AudioPacket& packet) override;
    void sendControl(const Control& control) override;
    void sendFile(FrameBuffer frame, UniqueFunction<void()> completion) override;
    void sendVideo(FrameBuffer frame, bool isKeyframe, UniqueFunction<void()> completion) override;
    void reject(Rejection reason) override;
    void close() override;

private:
    void postReceive() RUNS_ON(queue);
    void received(std::optional<ByteView> chunk) RUNS_ON(queue);
    void handle(Frame frame) RUNS_ON(queue);
    void handleHandshake(ByteView message) RUNS_ON(queue);
    void answerCommit(ByteView commit) RUNS_ON(queue);
    void handleSealed(Bytes box) RUNS_ON(queue);
    void send(FrameBuffer frame, bool isKeyframe, UniqueFunction<void()> completion) RUNS_ON(queue);
    void sendNext() RUNS_ON(queue);
    void end(bool readingPeer) RUNS_ON(queue);

    SerialQueue& queue;
    const std::unique_ptr<Connection> connection;
    SecureHandshake::Responder responder OWNED_BY(queue);
    std::unique_ptr<SecureSession> secure OWNED_BY(queue);  // once the handshake has succeeded
    FrameParser parser OWNED_BY(queue);                     // the bytes of the connection
    FrameParser inner OWNED_BY(queue);                      // the plaintext of the sealed frames
    int handshakeStep OWNED_BY(queue) = 0;                  // handshake frames received
    bool answered OWNED_BY(queue) = false;
    std::optional<Bytes> phoneKey OWNED_BY(queue);
    std::optional<std::string> code OWNED_BY(queue);
    bool authenticated OWNED_BY(queue) = false;
    bool rejected OWNED_BY(queue) = false;  // what the phone still says is not heard
    bool ended OWNED_BY(queue) = false;
    std::string phoneName OWNED_BY(queue);
    Timer deadline OWNED_BY(queue);

    OutboundQueue outbound OWNED_BY(queue);
    std::optional<OutboundQueue::Entry> sending OWNED_BY(
        queue);                        // its bytes are the connection's until completed
    Bytes plainReply OWNED_BY(queue);  // likewise, the handshake's one answer
    std::int64_t fileBytes OWNED_BY(queue) = 0;
    int audioOutstanding OWNED_BY(queue) = 0;
};

}  // namespace orvel
