#include "OrvelKit/Wire/Media.h"

#include <gtest/gtest.h>

#include <csignal>

#include "OrvelKit/Base/HexForTests.h"

namespace orvel {
namespace {

template <class Payload>
struct Row {
    const char* name;
    const char* bytes;
    std::optional<Payload> want;  // nullopt: malformed
    bool same = true;             // encoding `want` gives `bytes` again
};

template <class Payload>
void check(const Row<Payload>& row) {
    SCOPED_TRACE(row.name);
    const Bytes bytes = hex(row.bytes);
    if (!row.want) {
        try {
            Payload::decode(bytes);
            ADD_FAILURE() << "accepted";
        } catch (const FramingError& error) {
            EXPECT_EQ(error.code, FramingError::Code::malformed);
        }
        return;
    }
    EXPECT_TRUE(Payload::decode(bytes) == *row.want);
    const FrameBuffer encoded = row.want->encode();
    if (row.same) {
        EXPECT_EQ(toHex(encoded.payload()), toHex(bytes));
    }
    EXPECT_TRUE(Payload::decode(encoded.payload()) == *row.want);
}

TEST(VideoFormat, readsAndWritesEachRow) {
    const Row<VideoFormat> rows[] = {
        {"nothing", "", std::nullopt},
        {"no sets", "00", VideoFormat{}},
        {"two sets", "02 0003 674264 0002 68CE", VideoFormat{{hex("674264"), hex("68CE")}}},
        {"an empty set", "01 0000", VideoFormat{{Bytes{}}}},
        {"bytes after the last set", "01 0001 67 FFFF", VideoFormat{{hex("67")}}, false},
        {"bytes after no sets", "00 FF", VideoFormat{}, false},
        {"no length", "01", std::nullopt},
        {"half a length", "01 00", std::nullopt},
        {"a set cut short", "01 0002 67", std::nullopt},
        {"the second set cut short", "02 0001 67 0002 68", std::nullopt},
        {"the second set missing", "02 0001 67", std::nullopt},
    };
    for (const auto& row : rows)
        check(row);
}

TEST(VideoFormat, takesTheMostThatItsFieldsHold) {
    const VideoFormat most{std::vector<Bytes>(255, Bytes(65'535, 0x11))};
    const FrameBuffer encoded = most.encode();
    EXPECT_EQ(encoded.kind(), FrameKind::videoFormat);
    EXPECT_TRUE(VideoFormat::decode(encoded.payload()) == most);
    EXPECT_EXIT(VideoFormat{std::vector<Bytes>(256)}.encode(), testing::KilledBySignal(SIGABRT),
                "");
    EXPECT_EXIT(VideoFormat{{Bytes(65'536)}}.encode(), testing::KilledBySignal(SIGABRT), "");
}

TEST(VideoFrame, readsAndWritesEachRow) {
    const Row<VideoFrame> rows[] = {
        {"nothing", "", std::nullopt},
        {"eight bytes", "01 00000000000000", std::nullopt},
        {"an empty picture", "01 0000000000000000", VideoFrame{true, 0, {}}},
        {"a keyframe", "01 0000000000000102 AABB", VideoFrame{true, 258, hex("AABB")}},
        {"no keyframe", "00 FFFFFFFFFFFFFFFF 00", VideoFrame{false, UINT64_MAX, hex("00")}},
        {"other flags beside the keyframe's", "03 0000000000000000", VideoFrame{true, 0, {}},
         false},
        {"other flags without the keyframe's", "FE 0000000000000000", VideoFrame{false, 0, {}},
         false},
    };
    for (const auto& row : rows)
        check(row);
    EXPECT_EQ(VideoFrame{}.encode().kind(), FrameKind::videoFrame);
}

TEST(AudioPacket, readsAndWritesEachRow) {
    const Row<AudioPacket> rows[] = {
        {"nothing", "", std::nullopt},
        {"an empty packet", "00000001", std::nullopt},
        {"one byte", "00000001 AA", AudioPacket{1, hex("AA")}},
        {"the last number", "FFFFFFFF FC01", AudioPacket{UINT32_MAX, hex("FC01")}},
    };
    for (const auto& row : rows)
        check(row);
    EXPECT_EQ(AudioPacket{}.encode().kind(), FrameKind::audio);
}

}  // namespace
}  // namespace orvel
