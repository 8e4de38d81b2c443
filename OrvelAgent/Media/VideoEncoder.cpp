#include "OrvelAgent/Media/VideoEncoder.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "OrvelKit/Wire/Media.h"

namespace orvel {

namespace {

using Property = CompressionSession::Property;

constexpr std::int64_t framesPerSecond = 60;
constexpr std::int64_t keyframeIntervalSeconds = 4;
constexpr std::int64_t sharpBitrateFactor = 6;
constexpr double sharpQuality = 1.0;
constexpr double qualityAfterSharp = 0.6;

std::uint64_t wireTime(std::optional<std::int64_t> ptsMicros) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, ptsMicros.value_or(0)));
}

}  // namespace

std::string VideoEncoder::EncoderError::description() const {
    return "video encoder could not be created, status " + std::to_string(status);
}

VideoEncoder::VideoEncoder(SerialQueue& captureQueue, CompressionSession::Factory factory)
    : queue(captureQueue), makeSession(std::move(factory)) {}

VideoEncoder::~VideoEncoder() {
    if (session) session->invalidate();
}

std::optional<VideoEncoder::EncoderError> VideoEncoder::start(int width, int height,
                                                              std::int64_t newBitrate) {
    queue.assertCurrent();
    stop();
    auto created = makeSession({width, height, /*lowLatencyRateControl=*/true});
    if (created.status != 0 || !created.session) return EncoderError::create(created.status);

    // A session that does not know one of these still encodes: the results are not looked at.
    auto& made = *created.session;
    made.set(Property::realTime, true);
    made.set(Property::profileLevel, std::string("H264_ConstrainedHigh_AutoLevel"));
    made.set(Property::allowFrameReordering, false);
    made.set(Property::averageBitRate, newBitrate);
    made.set(Property::expectedFrameRate, framesPerSecond);
    made.set(Property::maxKeyFrameIntervalDuration, keyframeIntervalSeconds);
    made.prepare();

    bitrate = newBitrate;
    session = std::move(created.session);
    sessionLife = std::make_shared<Life>();
    forceKeyframe = true;
    return std::nullopt;
}

void VideoEncoder::stop() {
    queue.assertCurrent();
    sessionLife.reset();
    if (auto ended = std::exchange(session, nullptr)) ended->invalidate();
}

void VideoEncoder::encode(std::shared_ptr<const PixelBuffer> image, MonotonicTime time) {
    queue.assertCurrent();
    if (!session) return;
    const bool force = std::exchange(forceKeyframe, false);
    const auto status = session->encode(std::move(image), time, force, outputHandler());
    if (status != 0 && force)
        forceKeyframe = true;  // a refused picture has not been the next frame
}

void VideoEncoder::encodeSharp(std::shared_ptr<const PixelBuffer> image) {
    queue.assertCurrent();
    if (!session) return;
    if (bitrate > std::numeric_limits<std::int64_t>::max() / sharpBitrateFactor) std::abort();
    session->set(Property::averageBitRate, sharpBitrateFactor * bitrate);
    session->set(Property::quality, sharpQuality);
    session->encode(std::move(image), queue.now(), /*forceKeyframe=*/true, outputHandler());
    session->completeFrames();
    session->set(Property::averageBitRate, bitrate);
    // Not what a fresh session has: from here on quality has a lower bound.
    session->set(Property::quality, qualityAfterSharp);
    forceKeyframe = false;
}

void VideoEncoder::requestKeyframe() {
    queue.assertCurrent();
    forceKeyframe = true;
}

CompressionSession::OutputHandler VideoEncoder::outputHandler() {
    return [encoder = weak_from_this(),
            life = std::weak_ptr(sessionLife)](const CompressionSession::Sample& sample) {
        const auto self = encoder.lock();
        if (self && !life.expired()) self->emit(sample);
    };
}

void VideoEncoder::emit(const CompressionSession::Sample& sample) const {
    if (sample.status != 0 || sample.data.empty()) return;
    const bool isKeyframe = !sample.notSync;
    if (isKeyframe && onFormat && !sample.parameterSets.empty()) {
        VideoFormat format;
        for (const ByteView set : sample.parameterSets) {
            if (!set.empty()) format.parameterSets.emplace_back(set.begin(), set.end());
        }
        onFormat(format.encode());
    }
    if (onFrame) {
        onFrame(VideoFrame::encode(isKeyframe, wireTime(sample.ptsMicros), sample.data),
                isKeyframe);
    }
}

}  // namespace orvel
