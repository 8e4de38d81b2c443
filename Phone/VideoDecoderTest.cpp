#include "Phone/VideoDecoder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "Phone/VideoForTests.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel::phone {

namespace {

using Outcome = VideoDecoder::Outcome;

// BT.601 limited range of a saturated orange, (230, 120, 20).
constexpr VideoForTests::Colour orange{138, 68, 183};

TEST(VideoDecoder, everyFrameGivesItsPictureAtOnce) {
    VideoForTests video(320, 240);
    VideoDecoder decoder;
    EXPECT_FALSE(decoder.hasPicture());
    ASSERT_TRUE(decoder.setFormat(video.format));
    for (int i = 0; i < 30; ++i) {
        const auto luma = static_cast<std::uint8_t>(20 + 7 * i);
        ASSERT_EQ(decoder.decode(video.grey(luma, i == 0)), Outcome::picture) << i;
        EXPECT_EQ(decoder.width(), 320);
        EXPECT_EQ(decoder.height(), 240);
        EXPECT_NEAR(decoder.luma(160, 120), luma, 2) << i;
    }
    EXPECT_EQ(decoder.gaps(), 0u);
}

TEST(VideoDecoder, coloursAreThoseOfTheStreamsMatrixAndRange) {
    VideoForTests video(64, 64);
    VideoDecoder decoder;
    ASSERT_TRUE(decoder.setFormat(video.format));
    ASSERT_EQ(decoder.decode(video.frame(
                  [](int x, int) {
                      return x < 32 ? orange : VideoForTests::Colour{235, 128, 128};
                  },
                  true, 0)),
              Outcome::picture);
    const Picture picture = decoder.picture();
    ASSERT_EQ(picture.width, 64);
    ASSERT_EQ(picture.rgb.size(), 64u * 64 * 3);
    EXPECT_NEAR(picture.pixel(10, 30)[0], 230, 3);
    EXPECT_NEAR(picture.pixel(10, 30)[1], 120, 3);
    EXPECT_NEAR(picture.pixel(10, 30)[2], 20, 3);
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_GE(picture.pixel(50, 30)[channel], 253);
}

TEST(VideoDecoder, nothingIsDecodedBeforeFormatAndKeyframe) {
    VideoForTests video(64, 64);
    const auto key = video.grey(40, true), delta = video.grey(90);
    VideoDecoder decoder;
    EXPECT_EQ(decoder.decode(key), Outcome::skipped);
    EXPECT_FALSE(decoder.setFormat({}));
    EXPECT_FALSE(decoder.setFormat(VideoFormat{{Bytes{0x67, 1, 2, 3}, Bytes{0x68, 0}}}));
    EXPECT_EQ(decoder.decode(key), Outcome::skipped);
    ASSERT_TRUE(decoder.setFormat(video.format));
    EXPECT_EQ(decoder.decode(delta), Outcome::skipped);
    EXPECT_EQ(decoder.decode(key), Outcome::picture);
    EXPECT_TRUE(decoder.setFormat(video.format));
    EXPECT_EQ(decoder.decode(delta), Outcome::picture) << "the same format again changes nothing";
}

TEST(VideoDecoder, aMissingFrameIsNoticedAndAKeyframeMendsIt) {
    VideoForTests video(64, 64);
    std::vector<VideoFrame> frames;
    for (int i = 0; i < 6; ++i)
        frames.push_back(video.grey(static_cast<std::uint8_t>(40 + 20 * i), i == 0 || i == 4));
    VideoDecoder decoder;
    ASSERT_TRUE(decoder.setFormat(video.format));
    EXPECT_EQ(decoder.decode(frames[0]), Outcome::picture);
    EXPECT_EQ(decoder.decode(frames[2]), Outcome::damaged);
    EXPECT_EQ(decoder.decode(frames[3]), Outcome::skipped);
    EXPECT_NEAR(decoder.luma(30, 30), 40, 2) << "the last good picture stays";
    EXPECT_EQ(decoder.decode(frames[4]), Outcome::picture);
    EXPECT_EQ(decoder.decode(frames[5]), Outcome::picture);
    EXPECT_EQ(decoder.gaps(), 1u);
}

TEST(VideoDecoder, anotherSizeOpensItAnew) {
    VideoDecoder decoder;
    for (const int width : {64, 320, 128}) {
        VideoForTests video(width, 64);
        ASSERT_TRUE(decoder.setFormat(video.format));
        EXPECT_EQ(decoder.decode(video.grey(50, true)), Outcome::picture);
        EXPECT_EQ(decoder.width(), width);
        EXPECT_EQ(decoder.picture().width, width);
    }
}

TEST(VideoDecoder, damageIsCountedAndNeverFatal) {
    constexpr unsigned seed = 4711;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    VideoForTests video(320, 240);
    VideoDecoder decoder;
    ASSERT_TRUE(decoder.setFormat(video.format));
    const auto noise = [&](int, int) {
        return VideoForTests::Colour{static_cast<std::uint8_t>(16 + random() % 220), 128, 128};
    };
    int damaged = 0;
    for (int i = 0; i < 60; ++i) {
        VideoFrame frame = video.frame(noise, i % 10 == 0, 0);
        if (i % 10 == 5) {
            frame.data[frame.data.size() / 2] ^= 0x5A;
            frame.data.resize(frame.data.size() - random() % (frame.data.size() / 2));
        }
        damaged += decoder.decode(frame) != Outcome::picture;
    }
    EXPECT_GE(damaged, 6);
    EXPECT_LE(damaged, 60 - 6 * 5);
    EXPECT_EQ(decoder.decode(VideoFrame{true, 0, {}}), Outcome::damaged);
    EXPECT_EQ(decoder.decode(VideoFrame{true, 0, Bytes(1000, 0xFF)}), Outcome::damaged);
    EXPECT_EQ(decoder.decode(video.grey(100, true)), Outcome::picture);
    EXPECT_NEAR(decoder.luma(100, 100), 100, 2);
}

TEST(Picture, aPngReadsBackAsItWas) {
    const TemporaryFolder folder;
    const Picture picture{3, 2, {255, 0, 0, 0, 255, 0, 0, 0, 255, 1, 2, 3, 4, 5, 6, 250, 251, 252}};
    const std::string path = folder / "out.png";
    std::ofstream(path) << "what was there";
    EXPECT_EQ(writePng(picture, path), "");
    const std::string raw = folder / "raw";
    BackgroundProcess ffmpeg({.command = {"ffmpeg", "-v", "error", "-i", path, "-f", "rawvideo",
                                          "-pix_fmt", "rgb24", raw}});
    ASSERT_EQ(ffmpeg.wait(), 0);
    EXPECT_EQ(fileText(raw), textOf(picture.rgb));
}

TEST(Picture, aPlaceThatCannotBeWrittenIsSaid) {
    const TemporaryFolder folder;
    EXPECT_NE(writePng(Picture{1, 1, Bytes(3)}, folder / "no/such/folder.png"), "");
}

}  // namespace

}  // namespace orvel::phone
