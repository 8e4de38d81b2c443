#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelAgent/Rtc/LibWebRtc.h"

namespace orvel {

// The system's H.264 compression behind the library's encoder interface. Pictures of the screen go
// to it as they were captured, with what changed; any other picture is new all over.
//
// Keyframes are made when the library asks for one, which it does when the phone lost a picture;
// there are no others. The bitrate follows the library's estimate of the path.
//
// Used by the library on its encoder thread. Samples that come out later, on another thread, are
// passed on from there.
class CompressionEncoder final : public webrtc::VideoEncoder {
public:
    static constexpr const char* name = "orvel";

    // `format` as negotiated: its profile decides between High and Baseline.
    CompressionEncoder(CompressionSession::Factory factory, const webrtc::SdpVideoFormat& format);
    ~CompressionEncoder() override;

    int InitEncode(const webrtc::VideoCodec* settings, const Settings&) override;
    int32_t RegisterEncodeCompleteCallback(webrtc::EncodedImageCallback* receiver) override;
    int32_t Release() override;
    int32_t Encode(const webrtc::VideoFrame& frame,
                   const std::vector<webrtc::VideoFrameType>* types) override;
    void SetRates(const RateControlParameters& parameters) override;
    EncoderInfo GetEncoderInfo() const override;

private:
    std::shared_ptr<const PixelBuffer> pixelsOf(const webrtc::VideoFrame& frame);

    const CompressionSession::Factory makeSession;
    const std::string profile;
    std::unique_ptr<CompressionSession> session;
    webrtc::EncodedImageCallback* callback = nullptr;
    std::uint64_t foreignPictures = 0;
    std::atomic<bool> forceKeyframe{false};
};

}  // namespace orvel
