#include "OrvelKit/Wire/Framing.h"

#include <gtest/gtest.h>

#include <csignal>

#include "OrvelKit/Base/HexForTests.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {
namespace {

TEST(Framing, encodesKindThenBigEndianLengthThenPayload) {
    EXPECT_EQ(Framing::encode(FrameKind::handshake, {}), hex("05 00000000"));
    EXPECT_EQ(Framing::encode(FrameKind::file, hex("0102")), hex("04 00000002 0102"));
    const Bytes frame = Framing::encode(FrameKind::videoFrame, Bytes(300, 0x5A));
    ASSERT_EQ(frame.size(), 305u);
    EXPECT_EQ(toHex(ByteView(frame).first(6)), "030000012c5a");
}

TEST(Framing, sendersMayExceedWhatReceiversAccept) {
    const Bytes frame = Framing::encode(FrameKind::file, Bytes(Framing::maxPayload + 1));
    EXPECT_EQ(toHex(ByteView(frame).first(5)), "0401000001");
    EXPECT_THROW(FrameParser{}.feed(frame), FramingError);
}

TEST(Framing, aLengthBeyondItsFieldStopsTheProcess) {
    std::uint8_t header[Framing::headerLength];
    EXPECT_EXIT(Framing::storeHeader(header, FrameKind::file, std::size_t{1} << 32),
                testing::KilledBySignal(SIGABRT), "");
}

TEST(Framing, aControlFrameIsItsJson) {
    const Control keyframe{Control::RequestKeyframe{}};
    const Bytes frame = Framing::encodeControl(keyframe);
    EXPECT_EQ(toHex(ByteView(frame).first(5)), "0100000016");
    EXPECT_EQ(textOf(ByteView(frame).subspan(5)), R"({"requestKeyframe":{}})");
    EXPECT_EQ(Framing::decodeControl(ByteView(frame).subspan(5)), keyframe);
    EXPECT_THROW(Framing::decodeControl({}), ControlError);
}

TEST(FrameBuffer, holdsAFrameWithRoomForTheSealAroundIt) {
    FrameBuffer buffer(FrameKind::audio, hex("010203"));
    EXPECT_EQ(buffer.kind(), FrameKind::audio);
    EXPECT_EQ(buffer.payloadLength(), 3u);
    EXPECT_EQ(toHex(buffer.frame()), "0700000003010203");
    EXPECT_EQ(buffer.whole().size(), 5u + 5 + 3 + 16);
    EXPECT_EQ(buffer.whole().data() + 5, buffer.frame().data());
    EXPECT_EQ(buffer.whole().data() + 10, buffer.payload());
}

TEST(FrameBuffer, thePayloadIsWrittenInPlace) {
    FrameBuffer buffer(FrameKind::file, 2);
    buffer.payload()[0] = 0xAB;
    buffer.payload()[1] = 0xCD;
    const FrameBuffer moved = std::move(buffer);
    EXPECT_EQ(toHex(moved.frame()), "0400000002abcd");
}

TEST(FrameBuffer, frameEqualsTheEncodedFrame) {
    const Control ping{Control::Ping{7}};
    const FrameBuffer buffer = FrameBuffer::control(ping);
    EXPECT_EQ(toHex(buffer.frame()), toHex(Framing::encodeControl(ping)));
}

}  // namespace
}  // namespace orvel
