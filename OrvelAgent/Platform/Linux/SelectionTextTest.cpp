#include "OrvelAgent/Platform/Linux/SelectionText.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

using Encoding = SelectionEncoding;

TEST(SelectionText, isDecoded) {
    const struct {
        const char* name;
        Encoding encoding;
        std::string bytes;
        std::string text;
    } rows[] = {
        {"UTF-8", Encoding::utf8, "ılık çöğüş 👍🏽", "ılık çöğüş 👍🏽"},
        {"zero bytes at the end", Encoding::utf8, std::string("a\0b\0\0", 5),
         std::string("a\0b", 3)},
        {"bytes that are no character", Encoding::utf8, "a\xFF\xC3z\xE2\x82", "a��z��"},
        {"Latin-1", Encoding::latin1, "\xE7\xFF\x80z", "çÿ\u0080z"},
        {"unstated, well-formed", Encoding::unstated, "ş", "ş"},
        {"unstated, not so", Encoding::unstated, "\xE7", "ç"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(utf8From(row.encoding, row.bytes), row.text);
    }
}

TEST(SelectionText, becomesLatin1AsFarAsItCan) {
    EXPECT_EQ(latin1From("çÿ a"), "\xE7\xFF a");
    EXPECT_TRUE(isLatin1("çÿ a"));
    EXPECT_EQ(latin1From("ş👍z\xFF"), "??z?");
    EXPECT_FALSE(isLatin1("ş"));
    EXPECT_FALSE(isLatin1("\xFF"));
}

TEST(SelectionText, isCutBetweenCharacters) {
    const std::string text = "aş👍👍";
    std::string together;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end) {
        end = pieceEnd(text, begin, 5);
        EXPECT_LE(end - begin, 5u);
        const auto piece = text.substr(begin, end - begin);
        EXPECT_EQ(utf8From(Encoding::utf8, piece), piece);
        together += piece;
    }
    EXPECT_EQ(together, text);
    EXPECT_EQ(pieceEnd("\x80\x80\x80\x80\x80\x80", 1, 4), 5u);  // no beginning to be found
}

}  // namespace
}  // namespace orvel
