#include "OrvelAgent/Platform/Linux/BlockMap.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace orvel {
namespace {

// One character a block, # where it changed; rows separated by spaces.
std::string draw(const BlockMap& map) {
    std::string text;
    for (int row = 0; row < map.rows(); ++row) {
        if (row > 0) text += ' ';
        for (int column = 0; column < map.columns(); ++column)
            text += map.isChanged(column, row) ? '#' : '.';
    }
    return text;
}

constexpr int lowest = std::numeric_limits<int>::min(), highest = std::numeric_limits<int>::max();

struct MarkRow {
    const char* name;
    std::vector<Rect> changed;
    const char* want;
};
// On a picture of 40×20: the last column is 8 pixels wide, the last row 4 high.
const MarkRow markRows[] = {
    {"nothing", {}, "... ..."},
    {"one pixel", {{17, 3, 1, 1}}, ".#. ..."},
    {"the last pixel", {{39, 19, 1, 1}}, "... ..#"},
    {"up to a block's edge", {{0, 0, 16, 16}}, "#.. ..."},
    {"one pixel over it", {{0, 0, 17, 17}}, "##. ##."},
    {"everything", {{0, 0, 40, 20}}, "### ###"},
    {"empty rectangles", {{5, 5, 0, 9}, {5, 5, 9, -1}}, "... ..."},
    {"outside", {{40, 0, 5, 5}, {0, 20, 5, 5}, {-5, 0, 5, 5}}, "... ..."},
    {"reaching in from outside", {{-5, -5, 6, 6}}, "#.. ..."},
    {"as large as numbers go", {{lowest, lowest, highest, highest}}, "... ..."},
    {"from the middle to infinity", {{20, 10, highest, highest}}, ".## .##"},
    {"several, overlapping", {{0, 0, 4, 4}, {2, 2, 4, 4}, {33, 17, 2, 2}}, "#.. ..#"},
};

TEST(BlockMap, marksTheBlocksThatARectangleTouches) {
    BlockMap map(40, 20);
    EXPECT_EQ(draw(map), "### ###") << "at first nothing is known";
    for (const auto& row : markRows) {
        SCOPED_TRACE(row.name);
        map.mark(row.changed);
        EXPECT_EQ(draw(map), row.want);
        const std::string want = row.want;
        EXPECT_EQ(map.changedCount(), std::count(want.begin(), want.end(), '#'));
    }
}

TEST(BlockMap, remembersHowFinelyEachBlockWasCodedLast) {
    BlockMap map(40, 20);
    map.markAll();
    map.coded(30, /*anew=*/false);
    map.mark({{0, 0, 1, 1}});
    EXPECT_EQ(map.unchangedByQp()[30], 5);
    map.coded(35, false);  // one block coarser, the others stay as they were
    map.markNone();
    EXPECT_EQ(map.unchangedByQp()[30], 5);
    EXPECT_EQ(map.unchangedByQp()[35], 1);
    map.coded(20, false);  // finer: all of them are improved
    EXPECT_EQ(map.unchangedByQp()[20], 6);
    map.coded(40, /*anew=*/true);
    EXPECT_EQ(map.unchangedByQp()[40], 6);
}

}  // namespace
}  // namespace orvel
