#pragma once

#include "OrvelAgent/Rtc/LibWebRtc.h"
#include "Phone/Rtc/RtcPhone.h"

namespace orvel::phone {

// Decoders that hand H.264 on as it came. The library counts, paces and acknowledges pictures as
// if they had been decoded, and puts lost packets right before it gives one to a decoder; what it
// shows as a picture afterwards is not one.
class UndecodedVideo final : public webrtc::VideoDecoderFactory {
public:
    explicit UndecodedVideo(RtcPhones::CodedPictureHandler handler);

    // H.264 alone, in the profiles that the library takes.
    std::vector<webrtc::SdpVideoFormat> GetSupportedFormats() const override;
    std::unique_ptr<webrtc::VideoDecoder> CreateVideoDecoder(
        const webrtc::SdpVideoFormat& format) override;

private:
    const RtcPhones::CodedPictureHandler onCodedPicture;
};

}  // namespace orvel::phone
