#pragma once

#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelAgent/Rtc/LibWebRtc.h"

namespace orvel {

// What the agent can send: H.264 by the system's compression, and the library's VP8 for phones that
// offer nothing else (PhoneOffer says which it will be).
class VideoEncoders final : public webrtc::VideoEncoderFactory {
public:
    explicit VideoEncoders(CompressionSession::Factory factory);

    std::vector<webrtc::SdpVideoFormat> GetSupportedFormats() const override;
    std::unique_ptr<webrtc::VideoEncoder> CreateVideoEncoder(
        const webrtc::SdpVideoFormat& format) override;

private:
    const CompressionSession::Factory makeSession;
};

}  // namespace orvel
