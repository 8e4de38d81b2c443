#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Wire/FrameBuffer.h"

namespace orvel {

// Turns pictures into the frames of the local network's video stream, with one compression
// session at a time. Every function is called on the capture queue.
//
// Owned by a shared_ptr: what the session still puts out after stop() or after the encoder's end
// is dropped.
class VideoEncoder : public std::enable_shared_from_this<VideoEncoder> {
public:
    struct EncoderError {
        enum class Code { create } code;
        std::int32_t status;  // what the creation of the session returned

        static EncoderError create(std::int32_t status) { return {Code::create, status}; }
        std::string description() const;
        bool operator==(const EncoderError&) const = default;
    };

    VideoEncoder(SerialQueue& captureQueue, CompressionSession::Factory factory);
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    // Set before the first start, not changed after it. Called on whichever thread the session
    // puts its samples out, in the order of the stream.
    std::function<void(FrameBuffer format)> onFormat;  // a videoFormat frame, before each keyframe
    std::function<void(FrameBuffer frame, bool isKeyframe)> onFrame;  // a videoFrame frame

    // Ends the previous session. Size in pixels, even; bitrate in bits per second, on average.
    // nullopt: a session lives, and its first frame will be a keyframe.
    std::optional<EncoderError> start(int width, int height, std::int64_t bitrate);
    void stop();

    // Without a session these do nothing. A picture that the session refuses is dropped.
    void encode(std::shared_ptr<const PixelBuffer> image, MonotonicTime time);
    // One keyframe of the best quality, stamped with the present time; returns when it is out.
    void encodeSharp(std::shared_ptr<const PixelBuffer> image);

    // The next frame encoded is a keyframe.
    void requestKeyframe();

private:
    struct Life {};
    CompressionSession::OutputHandler outputHandler() RUNS_ON(queue);
    void emit(const CompressionSession::Sample& sample) const;

    SerialQueue& queue;
    const CompressionSession::Factory makeSession;
    std::unique_ptr<CompressionSession> session OWNED_BY(queue);
    std::shared_ptr<Life> sessionLife OWNED_BY(queue);  // handlers of an ended session see it gone
    std::int64_t bitrate OWNED_BY(queue) = 0;           // bits per second
    bool forceKeyframe OWNED_BY(queue) = false;
};

}  // namespace orvel
