#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/IceServerProvider.h"
#include "OrvelKit/Relay/SignalMessage.h"

namespace orvel {

// The answering end of one WebRTC connection: it takes the phone's offer, sends a video track and
// messages on the three data channels that the phone opens. What the messages mean is its owner's.
//
// Belongs to the queue that it was made for; calls and callbacks are there, but what it does is
// done on threads of its own, so no call waits and every outcome arrives later. Its one owner
// installs the callbacks before accept(). Letting go of it, on any thread, closes it.
class PeerConnection {
public:
    // The longest message that a data channel carries; a longer one would close it.
    static constexpr std::size_t maxMessageBytes = 262'144;
    // Of the phone's candidates; those beyond are not looked at.
    static constexpr int maxCandidates = 256;

    struct Configuration {
        std::vector<IceServer> iceServers;  // those that cannot be used are left out
        bool relayOnly = false;             // only over TURN
    };

    // By the label that the phone gave it: "files", "audio", and every other one is control. A
    // later channel of a kind replaces the one before.
    enum class Channel { control, files, audio };
    static constexpr std::size_t channelCount = 3;

    enum class State {
        connected,
        disconnected,  // nothing arrives; it may come back
        failed,        // by the network, the encryption, or a phone that floods it; final
    };

    // What the video sender says of itself, in the terms of the W3C's statistics.
    struct VideoStatistics {
        std::string codec;    // "video/H264"; empty: no video is sent
        std::string encoder;  // name of the implementation
        int width = 0, height = 0;
        std::uint32_t framesEncoded = 0, keyframesEncoded = 0, picturesLost = 0;  // the last: PLI
        std::uint64_t bytesSent = 0;
        double targetBitrate = 0;     // bits per second that the encoder is asked for
        double availableBitrate = 0;  // bits per second that the path is believed to carry
        double framesPerSecond = 0;
        double encodeSeconds = 0;  // all pictures together
    };

    using PictureSink = std::function<void(std::shared_ptr<const PixelBuffer>)>;

    // Makes one for a queue.
    using Factory =
        std::function<std::shared_ptr<PeerConnection>(const Configuration&, SerialQueue&)>;

    virtual ~PeerConnection() = default;

    // None of these is called from inside a call, nor after close().
    std::function<void(std::string sdp)> onAnswer;
    std::function<void()> onRefusal;                // the offer could not be used
    std::function<void(IceCandidate)> onCandidate;  // also before onAnswer
    std::function<void(State)> onState;
    std::function<void(Channel, bool isOpen)> onChannel;
    std::function<void(Bytes)> onMessage;    // from the control channel; at most maxMessageBytes
    std::function<void(Channel)> onDrained;  // bufferedAmount() became less

    // The phone's offer; once. With video in it, the first video section is answered with the
    // screen; everything else that it offers to send or receive is declined.
    virtual void accept(std::string offer) = 0;
    // May come before accept(). One that does not parse is dropped.
    virtual void add(const IceCandidate& candidate) = 0;

    // At most maxMessageBytes; dropped while the channel is not open. Empty messages are not sent.
    enum class Form { text, binary };
    virtual void send(Channel channel, ByteView message, Form form) = 0;
    virtual bool isOpen(Channel channel) const = 0;
    // Bytes given to send() that the transport has not taken yet.
    virtual std::int64_t bufferedAmount(Channel channel) const = 0;

    // Takes the screen's pictures; from any one thread at a time, also after close() and when this
    // is gone. It keeps the last few pictures for a moment.
    virtual PictureSink pictureSink() = 0;

    virtual void queryVideo(std::function<void(VideoStatistics)> completion) = 0;

    // Ends the connection; again is harmless.
    virtual void close() = 0;
};

}  // namespace orvel
