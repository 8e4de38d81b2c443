#include "OrvelAgent/Rtc/ScreenTrack.h"

#include <algorithm>

namespace orvel {

rtc::scoped_refptr<ScreenPicture> ScreenPicture::make(std::shared_ptr<const PixelBuffer> pixels) {
    return rtc::make_ref_counted<ScreenPicture>(std::move(pixels));
}

ScreenPicture::ScreenPicture(std::shared_ptr<const PixelBuffer> captured)
    : pixels(std::move(captured)) {}

rtc::scoped_refptr<webrtc::I420BufferInterface> ScreenPicture::ToI420() {
    const auto planar = webrtc::I420Buffer::Create(width(), height());
    for (int y = 0; y < height(); ++y)
        std::copy_n(DataY() + y * StrideY(), width(),
                    planar->MutableDataY() + y * planar->StrideY());
    for (int y = 0; y < planar->ChromaHeight(); ++y) {
        const auto* from = DataUV() + y * StrideUV();
        auto* cb = planar->MutableDataU() + y * planar->StrideU();
        auto* cr = planar->MutableDataV() + y * planar->StrideV();
        for (int x = 0; x < planar->ChromaWidth(); ++x) {
            cb[x] = from[2 * x];
            cr[x] = from[2 * x + 1];
        }
    }
    return planar;
}

void ScreenTrackSource::push(std::shared_ptr<const PixelBuffer> picture) {
    // The library drops a picture of the same millisecond as the one before.
    const auto time = std::max(rtc::TimeMillis(), lastMilliseconds + 1);
    lastMilliseconds = time;
    OnFrame(webrtc::VideoFrame::Builder()
                .set_video_frame_buffer(ScreenPicture::make(std::move(picture)))
                .set_rotation(webrtc::kVideoRotation_0)
                .set_timestamp_us(time * rtc::kNumMicrosecsPerMillisec)
                .build());
}

}  // namespace orvel
