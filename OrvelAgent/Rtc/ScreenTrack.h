#pragma once

#include <atomic>

#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Rtc/LibWebRtc.h"

namespace orvel {

// A captured picture as the library passes it on: not copied, and found again by the encoder.
class ScreenPicture : public webrtc::NV12BufferInterface {
public:
    static rtc::scoped_refptr<ScreenPicture> make(std::shared_ptr<const PixelBuffer> pixels);

    const std::shared_ptr<const PixelBuffer>& buffer() const { return pixels; }

    int width() const override { return pixels->width; }
    int height() const override { return pixels->height; }
    int StrideY() const override { return pixels->lumaStride; }
    int StrideUV() const override { return pixels->chromaStride; }
    const std::uint8_t* DataY() const override { return pixels->luma; }
    const std::uint8_t* DataUV() const override { return pixels->chroma; }
    rtc::scoped_refptr<webrtc::I420BufferInterface> ToI420() override;

protected:
    explicit ScreenPicture(std::shared_ptr<const PixelBuffer> captured);

private:
    const std::shared_ptr<const PixelBuffer> pixels;
};

// The source of the video track "screen".
class ScreenTrackSource : public rtc::AdaptedVideoTrackSource {
public:
    // From one thread at a time. The picture's time is the present: a picture that is shown again
    // is a new one for the phone.
    void push(std::shared_ptr<const PixelBuffer> picture);

    bool is_screencast() const override { return true; }
    absl::optional<bool> needs_denoising() const override { return false; }
    SourceState state() const override { return kLive; }
    bool remote() const override { return false; }

private:
    std::atomic<std::int64_t> lastMilliseconds{0};
};

}  // namespace orvel
