#include "OrvelAgent/Media/VideoEncoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvelAgent/Platform/Fake/FakeCompressionSession.h"
#include "OrvelAgent/Platform/Fake/FakePixelBuffer.h"
#include "OrvelKit/Wire/Media.h"

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace orvel {
namespace {

class VideoEncoderTest : public testing::Test {
protected:
    VideoEncoderTest() {
        encoder->onFormat = [this](const FrameBuffer& format) {
            EXPECT_EQ(format.kind(), FrameKind::videoFormat);
            formats.push_back(VideoFormat::decode(format.payload()));
            order += 'F';
        };
        encoder->onFrame = [this](const FrameBuffer& frame, bool isKeyframe) {
            EXPECT_EQ(frame.kind(), FrameKind::videoFrame);
            frames.push_back(VideoFrame::decode(frame.payload()));
            EXPECT_EQ(frames.back().isKeyframe, isKeyframe);
            order += isKeyframe ? 'K' : 'p';
        };
    }

    // Runs `body` on the capture queue.
    void onQueue(std::function<void()> body) {
        queue.post(std::move(body));
        time.runPending();
    }
    void start() {
        onQueue([&] { EXPECT_EQ(encoder->start(64, 32, 4'000'000), std::nullopt); });
    }
    void encode(std::uint64_t sequence, MonotonicTime at = MonotonicTime(1s)) {
        onQueue([=, this] { encoder->encode(FakePixelBuffer::grey(64, 32, sequence), at); });
    }

    VirtualTime time;
    SerialQueue queue{"orvel.capture", time};
    std::shared_ptr<FakeCompression> compression = std::make_shared<FakeCompression>();
    std::shared_ptr<VideoEncoder> encoder =
        std::make_shared<VideoEncoder>(queue, compression->factory());
    std::vector<VideoFormat> formats;
    std::vector<VideoFrame> frames;
    std::string order;  // F: format, K: keyframe, p: other frame
};

TEST_F(VideoEncoderTest, aSessionIsGivenItsSixPropertiesBeforeItIsPrepared) {
    start();
    EXPECT_THAT(compression->calls,
                ElementsAre("create 64x32 lowLatency", "realTime true",
                            "profileLevel H264_ConstrainedHigh_AutoLevel",
                            "allowFrameReordering false", "averageBitRate 4000000",
                            "expectedFrameRate 60", "maxKeyFrameIntervalDuration 4", "prepare"));
}

TEST_F(VideoEncoderTest, onlyTheFirstFrameOfASessionIsForcedAndItsFormatComesBeforeIt) {
    start();
    encode(1);
    encode(2);
    start();
    encode(3);
    EXPECT_EQ(order, "FKpFK");
    EXPECT_EQ(formats.at(0), (VideoFormat{{{0x67, 1}, {0x68, 2}}}));
    EXPECT_EQ(frames.at(1), (VideoFrame{false, 1'000'000, {0, 0, 0, 2, 0x41, 2}}));
}

TEST_F(VideoEncoderTest, aRequestMakesExactlyTheNextFrameAKeyframe) {
    start();
    encode(1);
    onQueue([&] { encoder->requestKeyframe(); });
    encode(2);
    encode(3);
    EXPECT_EQ(order, "FKFKp");
}

TEST_F(VideoEncoderTest, aRefusedPictureDoesNotUseUpTheRequest) {
    start();
    compression->encodeStatus = -1;
    encode(1);
    compression->encodeStatus = 0;
    encode(2);
    EXPECT_TRUE(compression->encoded.at(1).forcedKeyframe);
}

TEST_F(VideoEncoderTest, aFailedCreationLeavesNoSession) {
    start();
    compression->createStatus = -12'908;
    onQueue([&] {
        EXPECT_EQ(encoder->start(64, 32, 4'000'000), VideoEncoder::EncoderError::create(-12'908));
    });
    encode(1);
    onQueue([&] { encoder->encodeSharp(FakePixelBuffer::grey(64, 32, 1)); });
    EXPECT_EQ(compression->alive, 0);
    EXPECT_EQ(order, "");
}

TEST_F(VideoEncoderTest, aSharpFrameIsAKeyframeOfTheMomentAndLeavesQualityAtSixTenths) {
    start();
    encode(1);
    onQueue([&] { encoder->requestKeyframe(); });
    compression->calls.clear();
    compression->holdsSamples = true;
    onQueue([&] { encoder->encodeSharp(FakePixelBuffer::grey(64, 32, 1)); });
    EXPECT_THAT(compression->calls,
                ElementsAre("averageBitRate 24000000", "quality 1.0", "encode 1 keyframe",
                            "complete", "averageBitRate 4000000", "quality 0.6"));
    EXPECT_EQ(compression->encoded.back().time, time.now());
    compression->holdsSamples = false;
    encode(2);  // the sharp frame was the keyframe asked for
    EXPECT_EQ(order, "FKFKp");
}

struct TimeRow {
    const char* name;
    std::optional<std::int64_t> ptsMicros;
    std::uint64_t want;
};
const TimeRow timeRows[] = {
    {"invalid", std::nullopt, 0},
    {"negative", -1, 0},
    {"zero", 0, 0},
    {"far", 9'000'000'000'000'000, 9'000'000'000'000'000},
};

TEST_F(VideoEncoderTest, timesCrossAsMicrosecondsNeverBelowZero) {
    start();
    for (const auto& row : timeRows) {
        SCOPED_TRACE(row.name);
        compression->alter = [&](CompressionSession::Sample& sample) {
            sample.ptsMicros = row.ptsMicros;
        };
        encode(1);
        EXPECT_EQ(frames.back().ptsMicros, row.want);
    }
}

struct SampleRow {
    const char* name;
    std::function<void(CompressionSession::Sample&)> alter;
    const char* want;
};
const SampleRow sampleRows[] = {
    {"failed", [](auto& sample) { sample.status = -1; }, ""},
    {"no data", [](auto& sample) { sample.data = {}; }, ""},
    {"no format description", [](auto& sample) { sample.parameterSets.clear(); }, "K"},
    {"not sync, whatever was asked for", [](auto& sample) { sample.notSync = true; }, "p"},
};

TEST_F(VideoEncoderTest, whatASampleLacksIsLeftOut) {
    for (const auto& row : sampleRows) {
        SCOPED_TRACE(row.name);
        start();
        order.clear();
        compression->alter = row.alter;
        encode(1);
        EXPECT_EQ(order, row.want);
    }
}

TEST_F(VideoEncoderTest, anEmptyParameterSetIsSkipped) {
    start();
    compression->alter = [](auto& sample) { sample.parameterSets[0] = {}; };
    encode(1);
    EXPECT_EQ(formats.at(0), (VideoFormat{{{0x68, 2}}}));
}

TEST_F(VideoEncoderTest, whatComesOutTooLateIsDropped) {
    compression->holdsSamples = true;
    start();
    encode(1);
    onQueue([&] { encoder->stop(); });
    compression->release();
    EXPECT_EQ(order, "") << "after stop()";

    start();
    encode(2);
    start();
    compression->release();
    EXPECT_EQ(order, "") << "from the session before";

    encode(3);
    encoder.reset();
    compression->release();
    EXPECT_EQ(order, "") << "after the encoder's end";
    EXPECT_EQ(compression->alive, 0);
}

}  // namespace
}  // namespace orvel
