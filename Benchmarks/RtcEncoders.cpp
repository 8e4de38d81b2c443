#include "Benchmarks/RtcEncoders.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "OrvelAgent/Rtc/CompressionEncoder.h"
#include "OrvelAgent/Rtc/ScreenTrack.h"

namespace orvel {

namespace {

constexpr int framesPerSecond = 60;
constexpr std::uint32_t bitrate = 8'000'000;  // bits per second

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// One encoder as a connection would set it up, and what it took.
class Side final : webrtc::EncodedImageCallback {
public:
    Side(std::unique_ptr<webrtc::VideoEncoder> made, webrtc::VideoCodecType type, int width,
         int height)
        : encoder(std::move(made)) {
        webrtc::VideoCodec codec;
        codec.codecType = type;
        codec.width = static_cast<std::uint16_t>(width);
        codec.height = static_cast<std::uint16_t>(height);
        codec.startBitrate = codec.maxBitrate = bitrate / 1000;
        codec.minBitrate = 30;
        codec.maxFramerate = framesPerSecond;
        codec.qpMax = 56;
        codec.active = true;
        codec.mode = webrtc::VideoCodecMode::kScreensharing;
        codec.numberOfSimulcastStreams = 1;
        auto& stream = codec.simulcastStream[0];
        stream.width = width;
        stream.height = height;
        stream.maxFramerate = framesPerSecond;
        stream.maxBitrate = stream.targetBitrate = codec.maxBitrate;
        stream.minBitrate = codec.minBitrate;
        stream.numberOfTemporalLayers = 1;
        stream.qpMax = codec.qpMax;
        stream.active = true;
        if (type == webrtc::kVideoCodecVP8) {
            *codec.VP8() = webrtc::VideoEncoder::GetDefaultVp8Settings();
        } else {
            *codec.H264() = webrtc::VideoEncoder::GetDefaultH264Settings();
        }
        constexpr int cores = 2;
        const webrtc::VideoEncoder::Settings settings(webrtc::VideoEncoder::Capabilities(false),
                                                      cores, 1200);
        if (encoder->InitEncode(&codec, settings) != WEBRTC_VIDEO_CODEC_OK) {
            std::fprintf(stderr, "an encoder does not start\n");
            std::exit(1);
        }
        encoder->RegisterEncodeCompleteCallback(this);
        webrtc::VideoBitrateAllocation allocation;
        allocation.SetBitrate(0, 0, bitrate);
        encoder->SetRates({allocation, framesPerSecond});
    }
    ~Side() override { encoder->Release(); }

    void encode(const webrtc::VideoFrame& frame, bool measures) {
        const double before = cpuSeconds();
        const std::vector<webrtc::VideoFrameType> types{
            std::exchange(isFirst, false) ? webrtc::VideoFrameType::kVideoFrameKey
                                          : webrtc::VideoFrameType::kVideoFrameDelta};
        bytes = 0;
        encoder->Encode(frame, &types);
        if (!measures) return;
        times.push_back(cpuSeconds() - before);
        allBytes += bytes;
        coded += bytes > 0;
    }

    double cpuMs() const {
        double sum = 0;
        for (const auto one : times)
            sum += one;
        return 1e3 * sum / static_cast<double>(times.size());
    }
    double megabits() const {
        return 8e-6 * static_cast<double>(allBytes) * framesPerSecond /
               static_cast<double>(times.size());
    }
    int share() const { return static_cast<int>(100 * coded / times.size()); }

private:
    Result OnEncodedImage(const webrtc::EncodedImage& image,
                          const webrtc::CodecSpecificInfo*) override {
        bytes += image.size();
        return Result(Result::OK);
    }

    const std::unique_ptr<webrtc::VideoEncoder> encoder;
    bool isFirst = true;
    std::size_t bytes = 0, allBytes = 0, coded = 0;
    std::vector<double> times;
};

}  // namespace

void compareRtcEncoders(SyntheticScreen::Scene scene, int width, int height, int count) {
    rtc::LogMessage::LogToDebug(rtc::LS_NONE);
    const auto baseline = webrtc::CreateH264Format(webrtc::H264Profile::kProfileConstrainedBaseline,
                                                   webrtc::H264Level::kLevel5_2, "1");
    const auto high = webrtc::CreateH264Format(webrtc::H264Profile::kProfileHigh,
                                               webrtc::H264Level::kLevel5_2, "1");
    Side own(std::make_unique<CompressionEncoder>(CompressionSession::create, high),
             webrtc::kVideoCodecH264, width, height);
    Side vp8(webrtc::VP8Encoder::Create(), webrtc::kVideoCodecVP8, width, height);
    Side open(webrtc::H264Encoder::Create(cricket::VideoCodec(baseline)), webrtc::kVideoCodecH264,
              width, height);
    Side* sides[] = {&own, &vp8, &open};

    SyntheticScreen screen(width, height, scene);
    // The start, with its keyframe and its settling, is not what is compared.
    const int unmeasured = framesPerSecond / 2;
    for (int i = 0; i < count + unmeasured; ++i) {
        const auto micros = 1'000'000LL + 1'000'000LL * i / framesPerSecond;
        auto frame = webrtc::VideoFrame::Builder()
                         .set_video_frame_buffer(ScreenPicture::make(screen.next()))
                         .set_timestamp_us(micros)
                         .set_timestamp_rtp(static_cast<std::uint32_t>(micros * 9 / 100))
                         .build();
        for (auto* side : sides)
            side->encode(frame, i >= unmeasured);
        std::rotate(std::begin(sides), std::begin(sides) + 1, std::end(sides));
    }
    std::printf("%-7s %6.1f %6.1f %6.1f   %5.2f %5.2f   %5.1f %5.1f %5.1f   %3d %3d %3d\n",
                SyntheticScreen::name(scene), own.cpuMs(), vp8.cpuMs(), open.cpuMs(),
                own.cpuMs() / vp8.cpuMs(), own.cpuMs() / open.cpuMs(), own.megabits(),
                vp8.megabits(), open.megabits(), own.share(), vp8.share(), open.share());
    std::fflush(stdout);
}

}  // namespace orvel
