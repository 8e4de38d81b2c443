#include "OrvelKit/Base/Unicode.h"

#include <gtest/gtest.h>

#include <vector>

namespace orvel {
namespace {

TEST(Unicode, turnsUtf8IntoUtf16AndLeavesOutWhatIsNone) {
    const struct {
        const char* name;
        std::string_view utf8;
        std::u16string want;
    } rows[] = {
        {"nothing", "", u""},
        {"one to three bytes", "aş€", u"aş€"},
        {"four bytes become a pair", "👍🏽", {0xD83D, 0xDC4D, 0xD83C, 0xDFFD}},
        {"the ends of the planes",
         "\uFFFF\U00010000\U0010FFFF",
         {0xFFFF, 0xD800, 0xDC00, 0xDBFF, 0xDFFF}},
        {"a zero byte", std::string_view("a\0b", 3), std::u16string(u"a\0b", 3)},
        {"a lone continuation", "a\x80z", u"az"},
        {"cut short", "a\xC5", u"a"},
        {"cut short before another", "\xE2\x82z", u"z"},
        {"overlong", "\xC0\x80\xE0\x80\x80\xF0\x80\x80\x80z", u"z"},
        {"a surrogate", "\xED\xA0\xBDz", u"z"},
        {"above the last character", "\xF4\x90\x80\x80\xF5z", u"z"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(utf16From(row.utf8) == row.want);
    }
}

TEST(Utf16Joiner, makesCharactersOfPieces) {
    const struct {
        const char* name;
        std::vector<std::u16string> pieces;
        std::vector<std::u32string> want;
    } rows[] = {
        {"whole characters", {u"aş", u"👍"}, {U"aş", U"👍"}},
        {"a pair cut in two", {{u'a', 0xD83D}, {0xDC4D, u'b'}}, {U"a", U"👍b"}},
        {"an empty piece in between", {{0xD83D}, {}, {0xDC4D}}, {U"", U"", U"👍"}},
        {"no other half", {{0xD83D}, u"b", {0xDC4D}}, {U"", U"b", U""}},
        {"a second first half", {{0xD800, 0xD83D, 0xDC4D}}, {U"👍"}},
        {"a second half alone", {{0xDC4D, u'b'}}, {U"b"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Utf16Joiner joiner;
        std::vector<std::u32string> characters;
        for (const auto& piece : row.pieces)
            characters.push_back(joiner.join(piece));
        EXPECT_TRUE(characters == row.want);
    }
}

TEST(Utf16Joiner, forgetsTheFirstHalfWhenReset) {
    Utf16Joiner joiner;
    EXPECT_TRUE(joiner.join(std::u16string{0xD83D}).empty());
    joiner.reset();
    EXPECT_TRUE(joiner.join(std::u16string{0xDC4D}).empty());
}

}  // namespace
}  // namespace orvel
