#pragma once

#include <array>

#include "OrvelAgent/Rtc/RtcConnection.h"

namespace orvel {

class RtcLibrary;

// The owner's side of a connection: passes calls on to the library's signaling thread, and what is
// reported there back to the queue.
class WebRtcPeer final : public PeerConnection,
                         private RtcConnection::Owner,
                         public std::enable_shared_from_this<WebRtcPeer> {
public:
    WebRtcPeer(std::shared_ptr<RtcLibrary> library, SerialQueue& queue);
    ~WebRtcPeer() override;

    void open(const Configuration& configuration);  // once, first

    void accept(std::string offer) override;
    void add(const IceCandidate& candidate) override;
    void send(Channel channel, ByteView message, Form form) override;
    bool isOpen(Channel channel) const override;
    std::int64_t bufferedAmount(Channel channel) const override;
    PictureSink pictureSink() override;
    void queryVideo(std::function<void(VideoStatistics)> completion) override;
    void close() override;

private:
    struct Flow {
        bool isOpen = false;
        std::int64_t buffered = 0;  // bytes
    };
    Flow& flow(Channel channel) RUNS_ON(queue);

    // RtcConnection::Owner, on the queue.
    void answered(std::string sdp) override;
    void refused() override;
    void found(IceCandidate candidate) override;
    void changed(State state) override;
    void channelChanged(Channel channel, bool isOpen) override;
    void received(Bytes message) override;
    void taken(Channel channel, std::int64_t bytes) override;

    template <class Body>
    void onConnection(Body body);

    const std::shared_ptr<RtcLibrary> library;
    SerialQueue& queue;
    const rtc::scoped_refptr<ScreenTrackSource> source;
    std::weak_ptr<RtcConnection> connection;  // set by open()
    std::array<Flow, channelCount> flows OWNED_BY(queue);
    bool isClosed OWNED_BY(queue) = false;
};

}  // namespace orvel
