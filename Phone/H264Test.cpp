#include "Phone/H264.h"

#include <gtest/gtest.h>

#include "OrvelKit/Base/HexForTests.h"
#include "Phone/VideoForTests.h"

namespace orvel::phone {

namespace {

TEST(SequenceParameters, tellTheSizeAsItIsShown) {
    for (const auto& [width, height] :
         {std::pair{1920, 1080}, {1920, 1246}, {640, 480}, {2, 2}, {318, 242}}) {
        SCOPED_TRACE(testing::Message() << width << "x" << height);
        const VideoForTests video(width, height);
        ASSERT_EQ(video.format.parameterSets.size(), 2u);
        const auto parameters = SequenceParameters::parse(video.format.parameterSets[0]);
        ASSERT_TRUE(parameters);
        EXPECT_EQ(parameters->width, width);
        EXPECT_EQ(parameters->height, height);
    }
}

TEST(SequenceParameters, nonsenseIsRefusedAtEveryLength) {
    const Bytes good = VideoForTests(1920, 1080).format.parameterSets[0];
    for (std::size_t length = 0; length < good.size(); ++length) {
        // What is cut off may be what is not looked at; it must only not be read.
        const auto parameters = SequenceParameters::parse(ByteView(good).first(length));
        EXPECT_EQ(parameters ? parameters->width : 1920, 1920) << length;
        EXPECT_TRUE(length >= 8 || !parameters) << length;
    }
    for (std::size_t i = 0; i < good.size() * 8; ++i) {
        Bytes damaged = good;
        damaged[i / 8] ^= static_cast<std::uint8_t>(1 << i % 8);
        const auto parameters = SequenceParameters::parse(damaged);
        EXPECT_GT(parameters ? parameters->width : 1, 0) << i;
    }
    EXPECT_FALSE(SequenceParameters::parse(hex("67 64 00 28 FF")));
    EXPECT_FALSE(SequenceParameters::parse(Bytes(100, 0)));
    Bytes zeros(100, 0);
    zeros[0] = 0x67;
    EXPECT_FALSE(SequenceParameters::parse(zeros));
}

TEST(AvcConfiguration, isLaidOutFieldByField) {
    const VideoFormat format{{hex("67 42C01E AA"), hex("68 CE")}};
    EXPECT_EQ(toHex(avcConfiguration(format)),
              toHex(hex("01 42C01E FF"  // version, profile, constraints, level, 4-byte lengths
                        "E1 0005 6742C01EAA"  // one sequence parameter set
                        "01 0002 68CE")));    // one picture parameter set
    const VideoFormat high{{hex("67 640C28 AA"), hex("68 CE")}};
    EXPECT_EQ(toHex(avcConfiguration(high)),
              toHex(hex("01 640C28 FF E1 0005 67640C28AA 01 0002 68CE FD F8 F8 00")));
}

TEST(AvcConfiguration, needsBothKindsOfSets) {
    EXPECT_TRUE(avcConfiguration({}).empty());
    EXPECT_TRUE(avcConfiguration({{hex("67 42C01E")}}).empty());
    EXPECT_TRUE(avcConfiguration({{hex("68 CE")}}).empty());
    EXPECT_TRUE(avcConfiguration({{hex("67 42"), hex("68 CE")}}).empty());
    EXPECT_TRUE(avcConfiguration({{Bytes{}, Bytes{}}}).empty());
}

struct ByteStreamRow {
    const char *bytes, *parameterSets, *data;
};

TEST(AccessUnit, isCutAtItsStartCodes) {
    const ByteStreamRow rows[] = {
        {"00000001 65AB", "", "00000002 65AB"},
        {"000001 68CE 00000001 67AA 000001 68CF 000001 65AB 000001 41", "67AA 68CE 68CF",
         "00000002 65AB 00000001 41"},
        {"FFFF 000001 65AB 0000", "", "00000002 65AB"},  // something in front, zeros behind
        {"000001 65 000003 01 AB", "", "00000006 65 000003 01 AB"},
        {"000001 000001 00000001", "", ""},
        {"65AB 0000", "", ""},
        {"", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        const auto unit = AccessUnit::fromByteStream(hex(row.bytes));
        Bytes sets;
        for (const Bytes& set : unit.parameterSets)
            append(sets, set);
        EXPECT_EQ(toHex(sets), toHex(hex(row.parameterSets)));
        EXPECT_EQ(toHex(unit.data), toHex(hex(row.data)));
    }
}

TEST(FrameNumbers, findWhatWasLeftOut) {
    VideoForTests video(64, 64);
    std::vector<VideoFrame> frames;
    for (int i = 0; i < 40; ++i)
        frames.push_back(video.grey(static_cast<std::uint8_t>(16 + 5 * i), i == 0 || i == 35));
    const auto parameters = SequenceParameters::parse(video.format.parameterSets[0]).value();
    FrameNumbers numbers;
    numbers.start(parameters);
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_TRUE(numbers.follows(frames[i])) << i;  // the numbers have wrapped once on the way

    numbers.start(parameters);
    EXPECT_FALSE(numbers.follows(frames[1])) << "does not begin with a keyframe";
    numbers.start(parameters);
    EXPECT_TRUE(numbers.follows(frames[0]));
    EXPECT_FALSE(numbers.follows(frames[2])) << "one is missing";
    EXPECT_TRUE(numbers.follows(frames[3])) << "a gap is told once";
    EXPECT_FALSE(numbers.follows(frames[3])) << "the same again";
    EXPECT_TRUE(numbers.follows(frames[35])) << "a keyframe needs nothing before it";
    EXPECT_TRUE(numbers.follows(VideoFrame{false, 0, hex("00000005 65")}))
        << "what cannot be read is the decoder's business";
}

}  // namespace

}  // namespace orvel::phone
