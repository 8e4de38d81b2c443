#include "OrvelKit/Wire/KeyCode.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace orvel {
namespace {

TEST(KeyCode, knowsEachCharacterOfTheKeyboard) {
    const auto& codes = KeyCode::characters();
    EXPECT_EQ(codes.size(), 53u);
    // Along the rows of a US keyboard.
    const struct {
        const char* row;
        std::vector<std::uint16_t> codes;
    } rows[] = {
        {"`1234567890-=", {50, 18, 19, 20, 21, 23, 22, 26, 28, 25, 29, 27, 24}},
        {"qwertyuiop[]\\", {12, 13, 14, 15, 17, 16, 32, 34, 31, 35, 33, 30, 42}},
        {"asdfghjkl;'", {0, 1, 2, 3, 5, 4, 38, 40, 37, 41, 39}},
        {"zxcvbnm,./", {6, 7, 8, 9, 11, 45, 46, 43, 47, 44}},
    };
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.codes.size(); ++i) {
            const std::string key(1, row.row[i]);
            SCOPED_TRACE(key);
            EXPECT_EQ(codes.at(key), row.codes[i]);
        }
    }
    const std::pair<const char*, const char*> aliases[] = {{"ı", "i"}, {"ğ", "["}, {"ü", "]"},
                                                           {"ş", ";"}, {"ö", ","}, {"ç", "."}};
    for (const auto& [turkish, american] : aliases)
        EXPECT_EQ(codes.at(turkish), codes.at(american)) << turkish;
}

TEST(KeyCode, knowsEachUsageOfAHardwareKeyboard) {
    const auto& codes = KeyCode::usages();
    std::set<int> usages;
    for (const auto& [usage, code] : codes)
        usages.insert(usage);
    std::set<int> want = {100};
    for (int usage = 4; usage <= 82; ++usage) {
        if (usage < 70 || usage > 73) want.insert(usage);  // no Print Screen to Insert
    }
    EXPECT_EQ(usages, want);

    const std::pair<int, std::uint16_t> rows[] = {
        {4, 0},    {5, 11},   {29, 6},   {30, 18},  {38, 25},  {39, 29},  {40, 36},  {41, 53},
        {42, 51},  {43, 48},  {44, 49},  {49, 42},  {50, 42},  {57, 57},  {58, 122}, {69, 111},
        {74, 115}, {75, 116}, {76, 117}, {77, 119}, {78, 121}, {79, 124}, {80, 123}, {81, 125},
        {82, 126}, {100, 10}, {45, 27},  {46, 24},  {47, 33},  {48, 30},  {51, 41},  {52, 39},
        {53, 50},  {54, 43},  {55, 47},  {56, 44},  {63, 97},  {20, 12},
    };
    for (const auto& [usage, code] : rows)
        EXPECT_EQ(codes.at(usage), code) << usage;
    // The function keys are those of the list.
    for (std::size_t i = 0; i < KeyCode::functionKeys.size(); ++i)
        EXPECT_EQ(codes.at(58 + static_cast<int>(i)), KeyCode::functionKeys[i]);
}

}  // namespace
}  // namespace orvel
