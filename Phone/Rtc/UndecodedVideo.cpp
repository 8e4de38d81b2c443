#include "Phone/Rtc/UndecodedVideo.h"

#include <utility>

namespace orvel::phone {

namespace {

class PassingDecoder final : public webrtc::VideoDecoder {
public:
    explicit PassingDecoder(RtcPhones::CodedPictureHandler handler)
        : onCodedPicture(std::move(handler)) {
        webrtc::I420Buffer::SetBlack(nothing.get());
    }

    bool Configure(const Settings&) override { return true; }
    int32_t RegisterDecodeCompleteCallback(webrtc::DecodedImageCallback* callback) override {
        whenDecoded = callback;
        return WEBRTC_VIDEO_CODEC_OK;
    }
    int32_t Release() override { return WEBRTC_VIDEO_CODEC_OK; }
    DecoderInfo GetDecoderInfo() const override { return {"none", false}; }

    int32_t Decode(const webrtc::EncodedImage& image, bool, int64_t) override {
        if (!whenDecoded || image.size() == 0) return WEBRTC_VIDEO_CODEC_ERROR;
        const bool isUsable =
            onCodedPicture({image._frameType == webrtc::VideoFrameType::kVideoFrameKey,
                            image.Timestamp(), ByteView(image.data(), image.size())});
        auto frame = webrtc::VideoFrame::Builder()
                         .set_video_frame_buffer(nothing)
                         .set_timestamp_rtp(image.Timestamp())
                         .build();
        whenDecoded->Decoded(frame);
        return isUsable ? WEBRTC_VIDEO_CODEC_OK : WEBRTC_VIDEO_CODEC_OK_REQUEST_KEYFRAME;
    }

private:
    const RtcPhones::CodedPictureHandler onCodedPicture;
    const rtc::scoped_refptr<webrtc::I420Buffer> nothing = webrtc::I420Buffer::Create(2, 2);
    webrtc::DecodedImageCallback* whenDecoded = nullptr;
};

}  // namespace

UndecodedVideo::UndecodedVideo(RtcPhones::CodedPictureHandler handler)
    : onCodedPicture(std::move(handler)) {}

std::vector<webrtc::SdpVideoFormat> UndecodedVideo::GetSupportedFormats() const {
    auto formats = webrtc::CreateBuiltinVideoDecoderFactory()->GetSupportedFormats();
    std::erase_if(formats, [](const auto& format) { return format.name != "H264"; });
    return formats;
}

std::unique_ptr<webrtc::VideoDecoder> UndecodedVideo::CreateVideoDecoder(
    const webrtc::SdpVideoFormat&) {
    return std::make_unique<PassingDecoder>(onCodedPicture);
}

}  // namespace orvel::phone
