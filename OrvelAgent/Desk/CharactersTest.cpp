#include "OrvelAgent/Desk/Characters.h"

#include <gtest/gtest.h>

#include <string>

namespace orvel {
namespace {

TEST(Characters, areCountedAsPeopleDo) {
    const struct {
        const char* name;
        std::string text;
        std::size_t count;
    } rows[] = {
        {"nothing", "", 0},
        {"ASCII", "abc", 3},
        {"Turkish", "ışık", 4},
        {"a letter and its combining accent", "e\u0301x", 2},
        {"many accents", "e\u0301\u0302\u0303\u0304", 1},
        {"a thumb with its colour", "👍🏽", 1},
        {"a family joined", "👩‍👩‍👧‍👦!", 2},
        {"two flags", "🇹🇷🇩🇪", 2},
        {"Korean in parts", "\u1112\u1161\u11ab", 1},
        {"a line's end of two signs", "a\r\nb", 3},
        {"line ends the other way round", "\n\r", 2},
        {"a zero byte", std::string("a\0b", 3), 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_FALSE(hasMoreCharactersThan(row.count, row.text));
        if (row.count > 0) {
            EXPECT_TRUE(hasMoreCharactersThan(row.count - 1, row.text));
        }
    }
}

TEST(Characters, bytesThatAreNoTextCount) {
    EXPECT_TRUE(hasMoreCharactersThan(9, std::string(10, '\xFF')));
    EXPECT_TRUE(hasMoreCharactersThan(9, std::string(10, '\x80')));
}

TEST(Characters, longTextsAreCountedToTheLimit) {
    std::string accented;
    for (int i = 0; i < 1'000'000; ++i)
        accented += "e\u0301";
    EXPECT_FALSE(hasMoreCharactersThan(1'000'000, accented));
    EXPECT_TRUE(hasMoreCharactersThan(1'000'000, accented + "x"));
    EXPECT_FALSE(hasMoreCharactersThan(1'000'000, std::string(1'000'000, 'x')));
    EXPECT_TRUE(hasMoreCharactersThan(1'000'000, std::string(1'000'001, 'x')));
}

}  // namespace
}  // namespace orvel
