#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/IceServerProvider.h"
#include "OrvelKit/Relay/SignalMessage.h"

namespace orvel::phone {

// The phones' end of WebRTC: the library's threads and decoders, for any number of RtcPhones. Every
// queue that a phone was given outlives it, or stop() is called before the queue ends.
class RtcPhones {
public:
    // A picture as it was sent. Whole, and in order: where something was lost for good, a keyframe
    // comes next. The bytes are valid during the call.
    struct CodedPicture {
        bool isKeyframe;
        std::uint32_t time;  // RTP's (RFC 6184): 90 kHz, from anywhere, and around at its end
        ByteView bytes;      // H.264 as a byte stream (ITU-T H.264, annex B)
    };
    // On a thread of the library, from a phone's start until stop(). False: a keyframe is wanted.
    using CodedPictureHandler = std::function<bool(const CodedPicture&)>;

    // `loopbackOnly`: addresses of this machine alone.
    explicit RtcPhones(bool loopbackOnly = false);
    // For one phone that decodes by itself: H.264 alone is asked for, and no RtcPhone::onPicture
    // comes.
    explicit RtcPhones(CodedPictureHandler onCodedPicture);
    ~RtcPhones();  // stop()
    RtcPhones(const RtcPhones&) = delete;
    RtcPhones& operator=(const RtcPhones&) = delete;

    // Ends every phone, without telling its owner, and the threads; waits for that.
    void stop();

private:
    friend class RtcPhone;
    class Library;
    const std::shared_ptr<Library> library;
};

// The offering end of one session: it opens the three data channels and asks for one video track.
//
//     RtcPhone phone(phones, queue, {});
//     phone.onSignal = [&](SignalMessage message) { /* seal it, send it */ };
//     phone.onChannel = [&](RtcPhone::Channel channel, bool isOpen) { ... };
//     phone.start();                   // onSignal gets the offer, then candidates
//     phone.receive(answer);           // and the agent's candidates
//
// Belongs to the queue given to it; calls and callbacks are there, but onPicture.
class RtcPhone {
public:
    enum class Channel { control, files, audio };
    enum class State { connected, disconnected, failed };

    struct Options {
        std::vector<IceServer> iceServers = {};
        bool relayOnly = false;
        bool asksForVideo = true;
        std::string controlLabel = "control";
    };

    // A decoded picture; the planes belong to the library and are valid during the call.
    struct Picture {
        int width = 0, height = 0;  // pixels
        const std::uint8_t* luma = nullptr;
        const std::uint8_t* cb = nullptr;  // at half size
        const std::uint8_t* cr = nullptr;
        int lumaStride = 0, chromaStride = 0;  // bytes a row
    };

    struct VideoStatistics {
        std::string codec;  // "video/H264"; empty: none arrives
        std::string decoder;
        std::uint32_t framesDecoded = 0, keyframesDecoded = 0, framesDropped = 0;
        std::uint64_t bytesReceived = 0;
        double framesPerSecond = 0;
    };

    RtcPhone(RtcPhones& phones, SerialQueue& queue, Options options);
    ~RtcPhone();  // close()
    RtcPhone(const RtcPhone&) = delete;
    RtcPhone& operator=(const RtcPhone&) = delete;

    // Installed before start(). None is called from inside a call, nor after close().
    std::function<void(SignalMessage)> onSignal;
    std::function<void(State)> onState;
    std::function<void(Channel, bool isOpen)> onChannel;
    std::function<void(Channel, Bytes message)> onMessage;
    // On a thread of the library; it may come until a moment after close(), or RtcPhones::stop().
    std::function<void(const Picture&)> onPicture;

    void start();  // once
    // The agent's answer and candidates; what a phone does not expect is dropped.
    void receive(const SignalMessage& message);
    void sendText(Channel channel, const std::string& text);
    void sendBytes(Channel channel, ByteView bytes);
    void queryVideo(std::function<void(VideoStatistics)> completion);
    void closeChannel(Channel channel);
    void close();  // again is harmless

private:
    friend class RtcPhones;
    class Connection;
    struct Owner;
    const std::shared_ptr<RtcPhones::Library> library;
    SerialQueue& queue;
    const Options options;
    std::shared_ptr<Owner> owner;  // its life is this phone's: what comes later finds it gone
    std::weak_ptr<Connection> connection;
};

}  // namespace orvel::phone
