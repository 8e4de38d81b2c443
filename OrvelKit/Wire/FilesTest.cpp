#include "OrvelKit/Wire/Files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "OrvelKit/Base/HexForTests.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {
namespace {

Bytes payloadOf(std::string_view header, std::string_view body) {
    Bytes bytes = hex(header);
    append(bytes, bytesOf(body));
    return bytes;
}

TEST(FileFrame, writesAndReadsEachStep) {
    const std::tuple<const char*, FileFrame, const char*, std::string_view> rows[] = {
        {"start",
         {7, FileFrame::Start{"résumé \"1\".pdf", 300}},
         "01 00000007",
         R"({"name":"résumé \"1\".pdf","size":300})"},
        {"start of the largest file",
         {0, FileFrame::Start{"", INT64_MAX}},
         "01 00000000",
         R"({"name":"","size":9223372036854775807})"},
        {"data", {0x01020304, FileFrame::Data{hex("7B00FF")}}, "02 01020304", {"{\0\xFF", 3}},
        {"data without bytes", {1, FileFrame::Data{}}, "02 00000001", ""},
        {"end", {UINT32_MAX, FileFrame::End{}}, "03 FFFFFFFF", "{}"},
        {"end with an error",
         {9, FileFrame::End{"İptal edildi."}},
         "03 00000009",
         R"({"error":"İptal edildi."})"},
    };
    for (const auto& [name, frame, header, body] : rows) {
        SCOPED_TRACE(name);
        const FrameBuffer buffer = frame.encode();
        EXPECT_EQ(buffer.kind(), FrameKind::file);
        EXPECT_EQ(toHex(buffer.payload()), toHex(payloadOf(header, body)));
        EXPECT_TRUE(FileFrame::decode(buffer.payload()) == frame);
    }
}

TEST(FileFrame, dataIsWrittenStraightIntoItsBuffer) {
    FrameBuffer buffer = FileFrame::dataBuffer(5, 3);
    std::fill_n(buffer.payload() + FileFrame::dataHeaderLength, 3, std::uint8_t{0xEE});
    EXPECT_TRUE(FileFrame::decode(std::as_const(buffer).payload()) ==
                (FileFrame{5, FileFrame::Data{hex("EEEEEE")}}));
}

TEST(FileFrame, refusesWhatIsNoStep) {
    for (const char* bytes : {"", "02", "03 000000", "00 00000001 7B7D", "04 00000001 7B7D"}) {
        SCOPED_TRACE(bytes);
        try {
            FileFrame::decode(hex(bytes));
            ADD_FAILURE() << "accepted";
        } catch (const FramingError& error) {
            EXPECT_EQ(error.code, FramingError::Code::malformed);
        }
    }
}

TEST(FileFrame, refusesABadJsonBody) {
    const std::pair<const char*, const char*> rows[] = {
        {"01 00000001", ""},
        {"01 00000001", R"({"name":"a"})"},
        {"01 00000001", R"({"size":1})"},
        {"01 00000001", R"({"name":null,"size":1})"},
        {"01 00000001", R"({"name":"a","size":1.5})"},
        {"01 00000001", R"({"name":"a","size":9223372036854775808})"},
        {"03 00000001", ""},
        {"03 00000001", "[]"},
        {"03 00000001", R"({"error":1})"},
    };
    for (const auto& [header, body] : rows) {
        SCOPED_TRACE(body);
        EXPECT_THROW(FileFrame::decode(payloadOf(header, body)), ControlError);
    }
    EXPECT_TRUE(FileFrame::decode(payloadOf("03 00000001", R"({"error":null,"more":1})")) ==
                (FileFrame{1, FileFrame::End{}}));
}

}  // namespace
}  // namespace orvel
