#include "OrvelAgent/Rtc/VideoEncoders.h"

#include "OrvelAgent/Rtc/CompressionEncoder.h"

namespace orvel {

VideoEncoders::VideoEncoders(CompressionSession::Factory factory)
    : makeSession(std::move(factory)) {}

std::vector<webrtc::SdpVideoFormat> VideoEncoders::GetSupportedFormats() const {
    // Each profile that a decoder may name although a Constrained one is all that is sent. Only
    // packetization mode 1: in mode 0 no NAL unit may be longer than a packet.
    using Profile = webrtc::H264Profile;
    std::vector<webrtc::SdpVideoFormat> formats;
    for (const auto profile : {Profile::kProfileConstrainedHigh, Profile::kProfileHigh,
                               Profile::kProfileConstrainedBaseline, Profile::kProfileBaseline}) {
        formats.push_back(webrtc::CreateH264Format(profile, webrtc::H264Level::kLevel5_2, "1"));
    }
    formats.push_back(webrtc::SdpVideoFormat(cricket::kVp8CodecName));
    return formats;
}

std::unique_ptr<webrtc::VideoEncoder> VideoEncoders::CreateVideoEncoder(
    const webrtc::SdpVideoFormat& format) {
    if (format.name == cricket::kVp8CodecName) return webrtc::VP8Encoder::Create();
    return std::make_unique<CompressionEncoder>(makeSession, format);
}

}  // namespace orvel
