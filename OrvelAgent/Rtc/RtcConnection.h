#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "OrvelAgent/Rtc/LibWebRtc.h"
#include "OrvelAgent/Rtc/PeerConnection.h"
#include "OrvelAgent/Rtc/ScreenTrack.h"
#include "OrvelKit/Base/UniqueFunction.h"

namespace orvel {

class RtcThreads;

// The library's side of a connection. Made anywhere; everything else happens on the library's
// signaling thread. Nothing that a phone sends is passed to a function of the library which takes
// it for a programming error.
class RtcConnection final : public std::enable_shared_from_this<RtcConnection>,
                            private webrtc::PeerConnectionObserver {
public:
    using Channel = PeerConnection::Channel;
    using State = PeerConnection::State;

    static constexpr std::size_t maxChannels = 16;  // that a phone may open
    // Of messages on their way to the owner; more ends the connection.
    static constexpr std::int64_t maxUndelivered = 8 * 1024 * 1024;
    static constexpr int maxBitrate = 8'000'000, startBitrate = 4'000'000, minBitrate = 100'000;
    static constexpr double maxFrameRate = 60;

    // Whom it is for, on another thread.
    class Owner {
    public:
        virtual void answered(std::string sdp) = 0;
        virtual void refused() = 0;
        virtual void found(IceCandidate candidate) = 0;
        virtual void changed(State state) = 0;
        virtual void channelChanged(Channel channel, bool isOpen) = 0;
        virtual void received(Bytes message) = 0;
        virtual void taken(Channel channel, std::int64_t bytes) = 0;

    protected:
        ~Owner() = default;
    };
    using Report = UniqueFunction<void(Owner&)>;

    // `report` carries reports to the owner, in their order.
    RtcConnection(std::function<void(Report)> report, rtc::scoped_refptr<ScreenTrackSource> source);
    ~RtcConnection() override;

    void open(RtcThreads& threads, const PeerConnection::Configuration& configuration);
    void accept(const std::string& offer);
    void add(const IceCandidate& candidate);
    void send(Channel channel, const rtc::CopyOnWriteBuffer& message, PeerConnection::Form form);
    void queryVideo(std::function<void(PeerConnection::VideoStatistics)> completion);
    void close();  // not from inside one of the library's calls

private:
    class Line;  // one data channel
    using LineHandle = std::unique_ptr<Line>;

    void remoteIsSet();
    void localIsSet(const std::string& sdp);
    void attachVideo();
    void limitVideo();
    void refuse();
    void hear(const webrtc::DataBuffer& message);
    void lineChanged(Line& line);
    void linesTook(Channel channel, std::int64_t bytes);
    template <class Body>
    auto whenOpen(Body body);

    // webrtc::PeerConnectionObserver
    void OnSignalingChange(webrtc::PeerConnectionInterface::SignalingState) override {}
    void OnIceGatheringChange(webrtc::PeerConnectionInterface::IceGatheringState) override {}
    void OnDataChannel(rtc::scoped_refptr<webrtc::DataChannelInterface> channel) override;
    void OnIceConnectionChange(webrtc::PeerConnectionInterface::IceConnectionState state) override;
    void OnConnectionChange(webrtc::PeerConnectionInterface::PeerConnectionState state) override;
    void OnIceCandidate(const webrtc::IceCandidateInterface* candidate) override;

    const std::function<void(Report)> report;
    const std::shared_ptr<std::atomic<std::int64_t>> undelivered;  // bytes
    rtc::scoped_refptr<ScreenTrackSource> source;
    rtc::scoped_refptr<webrtc::PeerConnectionInterface> peer;  // null: not open
    rtc::scoped_refptr<webrtc::VideoTrackInterface> track;
    rtc::scoped_refptr<webrtc::RtpSenderInterface> videoSender;  // once attached
    std::vector<LineHandle> lines;
    std::array<Line*, PeerConnection::channelCount> current{};
    std::array<std::int64_t, PeerConnection::channelCount> untaken{};  // bytes given to `current`
    std::vector<IceCandidate> early;  // until the remote description is set
    int candidates = 0;
    std::size_t maxMessageBytes = 0;  // that the phone takes
    bool hasRemote = false;
};

}  // namespace orvel
