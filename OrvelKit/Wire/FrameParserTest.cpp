#include "OrvelKit/Wire/FrameParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <variant>

#include "OrvelKit/Base/HexForTests.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {

// How a failing row shows.
void PrintTo(const Frame& frame, std::ostream* out) {
    *out << "frame " << int(frame.kind) << " " << toHex(frame.payload).substr(0, 64);
}
void PrintTo(const FramingError& error, std::ostream* out) {
    *out << error.what() << " " << error.value;
}

namespace {

using Frames = std::vector<Frame>;
using Outcome = std::variant<Frames, FramingError>;

template <class Feeding>
Outcome outcomeOf(Feeding feed) {
    try {
        return feed();
    } catch (const FramingError& error) {
        return error;
    }
}

struct ParseRow {
    const char* name;
    const char* bytes;
    Outcome want;
};

const Frame braces{FrameKind::control, hex("7B7D")};
const Frame oneByte{FrameKind::handshake, hex("AA")};

const ParseRow parseRows[] = {
    {"nothing", "", Frames{}},
    {"a header cut short", "01 000000", Frames{}},
    {"an unknown kind alone waits for its header", "08 000000", Frames{}},
    {"an empty payload", "05 00000000", Frames{{FrameKind::handshake, {}}}},
    {"a payload cut short", "01 00000002 7B", Frames{}},
    {"one frame", "01 00000002 7B7D", Frames{braces}},
    {"several frames", "01 00000002 7B7D 05 00000001 AA 07 00000000",
     Frames{braces, oneByte, {FrameKind::audio, {}}}},
    {"a frame and the start of another", "05 00000001 AA 01 00000002 7B", Frames{oneByte}},
    {"the lowest kind", "01 00000000", Frames{{FrameKind::control, {}}}},
    {"the highest kind", "07 00000000", Frames{{FrameKind::audio, {}}}},
    {"kind 0", "00 00000000", FramingError::unknownKind(0)},
    {"kind 8", "08 00000000", FramingError::unknownKind(8)},
    {"kind 255", "FF 00000000", FramingError::unknownKind(255)},
    {"the largest length waits", "06 01000000", Frames{}},
    {"one byte more is refused", "06 01000001", FramingError::tooLarge(16'777'217)},
    {"the largest number is refused", "06 FFFFFFFF", FramingError::tooLarge(4'294'967'295)},
    {"kind is judged before length", "08 FFFFFFFF", FramingError::unknownKind(8)},
    {"good then bad gives nothing", "05 00000001 AA 00 00000000", FramingError::unknownKind(0)},
    {"a payload's bytes are not judged", "05 00000005 08FFFFFFFF",
     Frames{{FrameKind::handshake, hex("08FFFFFFFF")}}},
};

TEST(FrameParser, readsEachRowAsWritten) {
    for (const auto& row : parseRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(outcomeOf([&] { return FrameParser{}.feed(hex(row.bytes)); }), row.want);
    }
}

TEST(FrameParser, aSplitAtAnyTwoBytesChangesNothing) {
    const Bytes stream = hex("01 00000002 7B7D 06 00000000 05 00000001 AA");
    const Frames want{braces, {FrameKind::sealed, {}}, oneByte};
    for (std::size_t first = 0; first <= stream.size(); ++first) {
        for (std::size_t second = first; second <= stream.size(); ++second) {
            SCOPED_TRACE(testing::Message() << first << ", " << second);
            const ByteView view(stream);
            FrameParser parser;
            Frames frames;
            for (const ByteView part :
                 {view.first(first), view.subspan(first, second - first), view.subspan(second)}) {
                for (Frame& frame : parser.feed(part))
                    frames.push_back(std::move(frame));
            }
            EXPECT_EQ(frames, want);
        }
    }
}

TEST(FrameParser, aFrameComesWithItsLastByteAndOnlyOnce) {
    const Bytes stream = hex("01 00000002 7B7D");
    FrameParser parser;
    for (std::size_t i = 0; i + 1 < stream.size(); ++i)
        EXPECT_TRUE(parser.feed(ByteView(stream).subspan(i, 1)).empty());
    EXPECT_EQ(parser.feed(ByteView(stream).last(1)), Frames{braces});
    EXPECT_TRUE(parser.feed({}).empty());
}

TEST(FrameParser, theHeaderIsJudgedAtItsFifthByte) {
    for (const char* bytes : {"09 00000000", "06 01000001"}) {
        SCOPED_TRACE(bytes);
        const Bytes header = hex(bytes);
        FrameParser parser;
        EXPECT_TRUE(parser.feed(ByteView(header).first(4)).empty());
        EXPECT_THROW(parser.feed(ByteView(header).last(1)), FramingError);
    }
}

TEST(FrameParser, aSpentParserStaysSpent) {
    FrameParser parser;
    EXPECT_THROW(parser.feed(hex("05 00000001 AA 08 00000000")), FramingError);
    EXPECT_EQ(outcomeOf([&] { return parser.feed(hex("05 00000001 AA")); }),
              Outcome(FramingError::unknownKind(8)));
}

// Copying what has arrived with every piece would take minutes here.
TEST(FrameParser, theLargestFrameMayComeInVerySmallPieces) {
    Bytes payload(Framing::maxPayload);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<std::uint8_t>(i * 2654435761u >> 24);
    const Bytes stream = Framing::encode(FrameKind::sealed, payload);
    FrameParser parser;
    Frames frames;
    for (ByteView rest = stream; !rest.empty();) {
        const ByteView piece = rest.first(std::min<std::size_t>(rest.size(), 200));
        rest = rest.subspan(piece.size());
        for (Frame& frame : parser.feed(piece))
            frames.push_back(std::move(frame));
    }
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].kind, FrameKind::sealed);
    EXPECT_TRUE(frames[0].payload == payload);
}

TEST(FrameParser, nextStopsBehindEachFrame) {
    const Bytes stream = hex("01 00000002 7B7D 05 00000001 AA 05 0000");
    FrameParser parser;
    ByteView rest = stream;
    EXPECT_EQ(parser.next(rest, {}), braces);
    EXPECT_EQ(rest.size(), 9u);
    EXPECT_EQ(parser.next(rest, {}), oneByte);
    EXPECT_EQ(rest.size(), 3u);
    EXPECT_EQ(parser.next(rest, {}), std::nullopt);
    EXPECT_TRUE(rest.empty());
}

TEST(FrameParser, eachHeaderIsJudgedByTheLimitsOfItsMoment) {
    using Limits = FrameParser::Limits;
    struct Row {
        const char* name;
        const char* header;
        Limits limits;
        std::optional<FramingError> want;
    };
    const Limits handshakeOnly{FrameKind::handshake, 64};
    const Row rows[] = {
        {"exactly the limit", "05 00000040", handshakeOnly, std::nullopt},
        {"one byte more", "05 00000041", handshakeOnly, FramingError::tooLarge(65)},
        {"another kind", "06 00000001", handshakeOnly, FramingError::unknownKind(6)},
        {"another kind, judged before its length", "06 FFFFFFFF", handshakeOnly,
         FramingError::unknownKind(6)},
        {"no kind at all", "09 00000000", handshakeOnly, FramingError::unknownKind(9)},
        {"any kind", "06 00000040", {std::nullopt, 64}, std::nullopt},
        {"a limit of zero", "06 00000001", {std::nullopt, 0}, FramingError::tooLarge(1)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Bytes bytes = hex(row.header);
        ByteView rest = bytes;
        FrameParser parser;
        std::optional<FramingError> error;
        try {
            EXPECT_EQ(parser.next(rest, row.limits), std::nullopt);
        } catch (const FramingError& thrown) {
            error = thrown;
        }
        EXPECT_EQ(error, row.want);
    }
}

TEST(FrameParser, stricterLimitsSpareAFrameThatHasBegun) {
    const Bytes stream = hex("05 00000002 AABB 05 00000002 CCDD");
    FrameParser parser;
    ByteView start = ByteView(stream).first(6);
    ByteView rest = ByteView(stream).subspan(6);
    const FrameParser::Limits strict{FrameKind::sealed, 1};
    EXPECT_EQ(parser.next(start, {}), std::nullopt);
    EXPECT_EQ(parser.next(rest, strict), (Frame{FrameKind::handshake, hex("AABB")}));
    EXPECT_THROW(parser.next(rest, strict), FramingError);
}

}  // namespace
}  // namespace orvel
