#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelAgent/Rtc/PeerConnection.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// One phone connected over the internet, by WebRTC. The phone offers and opens the data channels;
// the screen goes to it as a video track fed with pixels, everything else in messages: controls as
// JSON text, file frames and audio packets as the payloads of their frames.
//
//   created -> answered -> connected -> ended; any state may go straight to ended: by an offer that
//   cannot be used, a failure, ten seconds without a connection, the end of the control channel, a
//   rejection or close().
//
// What a phone says on a channel that makes no sense is dropped; the link stays.
//
// Belongs to the queue given to it; every call and callback is there.
class RTCPhoneSession final : public PhoneLink,
                              public std::enable_shared_from_this<RTCPhoneSession> {
public:
    static constexpr std::chrono::seconds disconnectGrace{10};
    static constexpr std::chrono::milliseconds rejectionTime{500};  // for a rejection to leave
    // A control whose JSON is longer does not leave: the caller cuts a listing beforehand.
    static constexpr std::size_t maxControlBytes = PeerConnection::maxMessageBytes;
    // Of controls that the phone does not read; more ends the link.
    static constexpr std::int64_t maxControlBacklog = 8 * 1024 * 1024;
    static constexpr std::int64_t audioCeiling = 16'000;  // bytes; sound is never late, but missing
    // File data goes in short messages, few at a time, so that sound gets its turns between them.
    static constexpr std::size_t fileMessageBytes = 16 * 1024;
    static constexpr std::int64_t filesAhead = 16 * 1024;

    // `deviceID` is the phone's; `session` the string of its signaling conversation.
    RTCPhoneSession(SerialQueue& queue, const PeerConnection::Factory& makePeer,
                    std::string deviceID, std::string session,
                    const PeerConnection::Configuration& configuration);

    // Installed before accept(). The owner keeps the session alive until onEnd was called, which
    // happens once; no other callback comes after it.
    std::function<void(SignalMessage)> onSignal;  // the answer, then candidates, for the relay
    std::function<void(Control)> onControl;
    std::function<void()> onEnd;

    // The phone's offer (an SDP); what comes after the first is dropped.
    void accept(std::string offer);
    // May come before the offer. One that makes no sense is dropped.
    void add(const IceCandidate& candidate);

    const std::string& session() const { return conversation; }
    bool hasEnded() const;
    // For the streamer: takes its pictures, on whichever queue it hands them out, also when the
    // session has ended or is gone.
    PeerConnection::PictureSink pictureSink();
    void queryVideo(std::function<void(PeerConnection::VideoStatistics)> completion);

    bool isAuthenticated() const override;
    void setAuthenticated(bool value) override;
    const std::string& name() const override;
    void setName(const std::string& value) override;
    std::optional<std::string> deviceID() const override { return phoneID; }
    bool wantsEncodedVideo() const override { return false; }
    bool isInternet() const override { return true; }
    std::size_t longestControl() const override { return maxControlBytes; }
    std::int64_t fileBacklog() const override;
    void sendAudio(const AudioPacket& packet) override;
    void sendControl(const Control& control) override;
    void sendFile(FrameBuffer frame, UniqueFunction<void()> completion) override;
    void sendVideo(FrameBuffer frame, bool isKeyframe, UniqueFunction<void()> completion) override;
    void reject(Rejection reason) override;
    void close() override;

private:
    using Channel = PeerConnection::Channel;
    using Form = PeerConnection::Form;
    struct FileMessage {
        FrameBuffer frame;
        UniqueFunction<void()> completion;  // may be empty
    };

    void listen() RUNS_ON(queue);
    void answered(std::string sdp) RUNS_ON(queue);
    void found(IceCandidate candidate) RUNS_ON(queue);
    void stateChanged(PeerConnection::State state) RUNS_ON(queue);
    void received(const Bytes& message) RUNS_ON(queue);
    void queueFile(FrameBuffer frame, UniqueFunction<void()> completion) RUNS_ON(queue);
    void sendFiles() RUNS_ON(queue);
    void end() RUNS_ON(queue);

    SerialQueue& queue;
    const std::string phoneID;
    const std::string conversation;
    const std::shared_ptr<PeerConnection> peer;
    bool offered OWNED_BY(queue) = false;
    bool hasAnswered OWNED_BY(queue) = false;
    bool authenticated OWNED_BY(queue) = false;
    bool rejected OWNED_BY(queue) = false;  // what the phone still says is not heard
    bool ended OWNED_BY(queue) = false;
    std::string phoneName OWNED_BY(queue);
    std::vector<IceCandidate> early OWNED_BY(queue);  // found before the answer left
    Timer disconnectTimer OWNED_BY(queue);
    Timer rejectionTimer OWNED_BY(queue);
    std::deque<FileMessage> files OWNED_BY(queue);
    std::int64_t fileBytes OWNED_BY(queue) = 0;  // in `files`
};

}  // namespace orvel
