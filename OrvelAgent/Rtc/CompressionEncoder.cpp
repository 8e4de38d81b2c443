#include "OrvelAgent/Rtc/CompressionEncoder.h"

#include <algorithm>
#include <cmath>

#include "OrvelAgent/Rtc/AnnexB.h"
#include "OrvelAgent/Rtc/ScreenTrack.h"

namespace orvel {

namespace {

using Property = CompressionSession::Property;

constexpr std::int64_t longestKeyframeInterval = 3600;  // seconds
constexpr std::int64_t lowestBitrate = 30'000;

// A picture that the library has cropped or scaled, or that never was one of the screen's.
class ForeignPicture final : public PixelBuffer {
public:
    ForeignPicture(rtc::scoped_refptr<webrtc::VideoFrameBuffer> given, std::uint64_t number)
        : buffer(std::move(given)) {
        if (buffer->type() != webrtc::VideoFrameBuffer::Type::kNV12) {
            const auto planar = buffer->ToI420();
            if (!planar) return;
            buffer = webrtc::NV12Buffer::Copy(*planar);
        }
        const auto* pixels = buffer->GetNV12();
        width = pixels->width();
        height = pixels->height();
        luma = pixels->DataY();
        chroma = pixels->DataUV();
        lumaStride = pixels->StrideY();
        chromaStride = pixels->StrideUV();
        // Never one more than another's: nothing is known of what changed.
        constexpr std::uint64_t ownNumbers = std::uint64_t{1} << 62;
        sequence = ownNumbers + 2 * number;
    }

private:
    rtc::scoped_refptr<webrtc::VideoFrameBuffer> buffer;
};

webrtc::EncodedImage imageFor(const webrtc::VideoFrame& frame) {
    webrtc::EncodedImage image;
    image.SetTimestamp(frame.timestamp());
    image.capture_time_ms_ = frame.render_time_ms();
    image.ntp_time_ms_ = frame.ntp_time_ms();
    image.rotation_ = frame.rotation();
    image.content_type_ = webrtc::VideoContentType::SCREENSHARE;
    image._encodedWidth = static_cast<std::uint32_t>(frame.width());
    image._encodedHeight = static_cast<std::uint32_t>(frame.height());
    // Shown as soon as decoded: who works on a screen would feel every millisecond.
    image.playout_delay_ = {0, 0};
    return image;
}

webrtc::CodecSpecificInfo h264Info(bool isKeyframe) {
    webrtc::CodecSpecificInfo info;
    info.codecType = webrtc::kVideoCodecH264;
    info.codecSpecific.H264.packetization_mode = webrtc::H264PacketizationMode::NonInterleaved;
    info.codecSpecific.H264.temporal_idx = webrtc::kNoTemporalIdx;
    info.codecSpecific.H264.base_layer_sync = false;
    info.codecSpecific.H264.idr_frame = isKeyframe;
    return info;
}

// False: the picture was left out.
bool deliver(webrtc::EncodedImageCallback& receiver, webrtc::EncodedImage& image,
             const CompressionSession::Sample& sample) {
    const auto bytes =
        webrtc::EncodedImageBuffer::Create(AnnexB::length(sample.parameterSets, sample.data));
    if (sample.status != 0 || sample.data.empty() ||
        !AnnexB::write(sample.parameterSets, sample.data, bytes->data())) {
        receiver.OnDroppedFrame(webrtc::EncodedImageCallback::DropReason::kDroppedByEncoder);
        return false;
    }
    const bool isKeyframe = !sample.notSync;
    image._frameType = isKeyframe ? webrtc::VideoFrameType::kVideoFrameKey
                                  : webrtc::VideoFrameType::kVideoFrameDelta;
    image.SetEncodedData(bytes);
    const auto info = h264Info(isKeyframe);
    receiver.OnEncodedImage(image, &info);
    return true;
}

std::string profileFor(const webrtc::SdpVideoFormat& format) {
    const auto level = webrtc::ParseSdpForH264ProfileLevelId(format.parameters);
    const bool isHigh = level && (level->profile == webrtc::H264Profile::kProfileHigh ||
                                  level->profile == webrtc::H264Profile::kProfileConstrainedHigh);
    return isHigh ? "H264_ConstrainedHigh_AutoLevel" : "H264_ConstrainedBaseline_AutoLevel";
}

}  // namespace

CompressionEncoder::CompressionEncoder(CompressionSession::Factory factory,
                                       const webrtc::SdpVideoFormat& format)
    : makeSession(std::move(factory)), profile(profileFor(format)) {}

CompressionEncoder::~CompressionEncoder() {
    Release();
}

int CompressionEncoder::InitEncode(const webrtc::VideoCodec* settings, const Settings&) {
    if (!settings || settings->codecType != webrtc::kVideoCodecH264) {
        return WEBRTC_VIDEO_CODEC_ERR_PARAMETER;
    }
    Release();
    auto created = makeSession({settings->width, settings->height, /*lowLatencyRateControl=*/true});
    if (created.status != 0 || !created.session) return WEBRTC_VIDEO_CODEC_ERROR;

    // A phone without High may have no decoder for it.
    if (created.session->set(Property::profileLevel, profile) != 0) return WEBRTC_VIDEO_CODEC_ERROR;
    // A session that does not know one of these still encodes: the results are not looked at.
    created.session->set(Property::realTime, true);
    created.session->set(Property::allowFrameReordering, false);
    created.session->set(Property::averageBitRate,
                         std::max(lowestBitrate, std::int64_t{settings->startBitrate} * 1000));
    created.session->set(Property::expectedFrameRate,
                         std::max(std::int64_t{1}, std::int64_t{settings->maxFramerate}));
    created.session->set(Property::maxKeyFrameIntervalDuration, longestKeyframeInterval);
    created.session->prepare();
    session = std::move(created.session);
    forceKeyframe = true;
    return WEBRTC_VIDEO_CODEC_OK;
}

int32_t CompressionEncoder::RegisterEncodeCompleteCallback(webrtc::EncodedImageCallback* receiver) {
    callback = receiver;
    return WEBRTC_VIDEO_CODEC_OK;
}

int32_t CompressionEncoder::Release() {
    if (const auto ended = std::exchange(session, nullptr)) ended->invalidate();
    return WEBRTC_VIDEO_CODEC_OK;
}

std::shared_ptr<const PixelBuffer> CompressionEncoder::pixelsOf(const webrtc::VideoFrame& frame) {
    const auto buffer = frame.video_frame_buffer();
    if (const auto* picture = dynamic_cast<const ScreenPicture*>(buffer.get())) {
        return picture->buffer();
    }
    return std::make_shared<ForeignPicture>(buffer, foreignPictures++);
}

int32_t CompressionEncoder::Encode(const webrtc::VideoFrame& frame,
                                   const std::vector<webrtc::VideoFrameType>* types) {
    if (!session || !callback) return WEBRTC_VIDEO_CODEC_UNINITIALIZED;
    const auto isKey = [](auto type) { return type == webrtc::VideoFrameType::kVideoFrameKey; };
    if (types && std::any_of(types->begin(), types->end(), isKey)) forceKeyframe = true;

    const MonotonicTime time{std::chrono::microseconds(frame.timestamp_us())};
    const bool force = forceKeyframe.exchange(false);
    const auto status =
        session->encode(pixelsOf(frame), time, force,
                        [this, force, image = imageFor(frame)](const auto& sample) mutable {
                            if (!deliver(*callback, image, sample) && force) forceKeyframe = true;
                        });
    if (status == 0) return WEBRTC_VIDEO_CODEC_OK;
    if (force) forceKeyframe = true;
    return WEBRTC_VIDEO_CODEC_ERROR;
}

void CompressionEncoder::SetRates(const RateControlParameters& parameters) {
    if (!session) return;
    const std::int64_t bitrate = parameters.bitrate.get_sum_bps();
    if (bitrate > 0) session->set(Property::averageBitRate, std::max(lowestBitrate, bitrate));
    if (parameters.framerate_fps >= 1) {
        session->set(Property::expectedFrameRate,
                     static_cast<std::int64_t>(std::min(240.0, parameters.framerate_fps)));
    }
}

webrtc::VideoEncoder::EncoderInfo CompressionEncoder::GetEncoderInfo() const {
    EncoderInfo info;
    info.implementation_name = name;
    info.scaling_settings = ScalingSettings::kOff;
    info.requested_resolution_alignment = 2;
    info.has_trusted_rate_controller = true;  // it leaves pictures out by itself
    info.preferred_pixel_formats = {webrtc::VideoFrameBuffer::Type::kNV12};
    return info;
}

}  // namespace orvel
