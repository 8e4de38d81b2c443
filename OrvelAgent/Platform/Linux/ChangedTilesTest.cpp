#include "OrvelAgent/Platform/Linux/ChangedTiles.h"

#include <gtest/gtest.h>

#include <random>

namespace orvel {
namespace {

std::vector<Rect> rectsOf(int width, int height, const std::vector<Rect>& added) {
    ChangedTiles tiles(width, height);
    for (const Rect& each : added)
        tiles.add(each);
    return tiles.rects();
}

struct Row {
    const char* name;
    int width, height;
    std::vector<Rect> added, want;
};

const Row rows[] = {
    {"nothing", 64, 64, {}, {}},
    {"one pixel takes its tile", 64, 64, {{17, 33, 1, 1}}, {{16, 32, 16, 16}}},
    {"edges of a tile stay in it", 64, 64, {{16, 16, 16, 16}}, {{16, 16, 16, 16}}},
    {"one pixel over the edge", 64, 64, {{15, 16, 2, 16}}, {{0, 16, 32, 16}}},
    {"everything is one rectangle", 100, 50, {{0, 0, 100, 50}}, {{0, 0, 100, 50}}},
    {"the last tiles are cut off", 100, 50, {{97, 49, 1, 1}}, {{96, 48, 4, 2}}},
    {"outside counts for nothing",
     64,
     64,
     {{-20, 0, 20, 9}, {64, 0, 5, 5}, {0, -9, 64, 9}, {3, 64, 9, 9}, {5, 5, 0, 9}, {5, 5, 9, -3}},
     {}},
    {"partly outside is clipped", 64, 64, {{-20, -20, 30, 30}}, {{0, 0, 16, 16}}},
    {"overlap is named once", 64, 64, {{0, 0, 32, 32}, {16, 16, 16, 16}}, {{0, 0, 32, 32}}},
    {"beside each other", 64, 64, {{0, 0, 9, 9}, {40, 0, 9, 9}}, {{0, 0, 16, 16}, {32, 0, 32, 16}}},
    {"a step", 64, 64, {{0, 0, 32, 16}, {0, 16, 16, 16}}, {{0, 0, 32, 16}, {0, 16, 16, 16}}},
    {"a ring",
     48,
     48,
     {{0, 0, 48, 16}, {0, 0, 16, 48}, {32, 0, 16, 48}, {0, 32, 48, 16}},
     {{0, 0, 48, 16}, {0, 16, 16, 16}, {32, 16, 16, 16}, {0, 32, 48, 16}}},
    {"more columns than a word has bits",
     2560,
     32,
     {{1000, 0, 1000, 32}, {2559, 20, 1, 1}},
     {{992, 0, 1008, 32}, {2544, 16, 16, 16}}},
};

TEST(ChangedTiles, turnIntoTheRectanglesOfEachRow) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(rectsOf(row.width, row.height, row.added), row.want);
    }
}

TEST(ChangedTiles, coverWhatWasAddedAndNoTileTwice) {
    constexpr int width = 1366, height = 90, seed = 4;
    std::mt19937 random(seed);
    for (int round = 0; round < 30; ++round) {
        ChangedTiles first(width, height), second(width, height);
        std::vector<char> wanted(static_cast<std::size_t>(width) * height, 0);
        for (int i = 0; i < round; ++i) {
            const Rect part{static_cast<int>(random() % width), static_cast<int>(random() % height),
                            static_cast<int>(random() % 90), static_cast<int>(random() % 30)};
            (i % 2 ? first : second).add(part);
            for (int y = part.y; y < std::min(part.y + part.height, height); ++y) {
                for (int x = part.x; x < std::min(part.x + part.width, width); ++x)
                    wanted[static_cast<std::size_t>(y) * width + x] = 1;
            }
        }
        first.add(second);
        std::vector<char> found(wanted.size(), 0);
        for (const Rect& part : first.rects()) {
            for (int y = part.y; y < part.y + part.height; ++y) {
                for (int x = part.x; x < part.x + part.width; ++x)
                    ++found.at(static_cast<std::size_t>(y) * width + x);
            }
        }
        for (std::size_t i = 0; i < found.size(); ++i) {
            ASSERT_LE(found[i], 1) << "round " << round << ", pixel " << i;
            ASSERT_GE(found[i], wanted[i]) << "round " << round << ", pixel " << i;
        }
        EXPECT_EQ(first.isEmpty(), first.rects().empty());
        first.clear();
        EXPECT_TRUE(first.isEmpty());
    }
}

}  // namespace
}  // namespace orvel
