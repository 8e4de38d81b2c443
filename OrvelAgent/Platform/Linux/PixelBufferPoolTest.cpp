#include "OrvelAgent/Platform/Linux/PixelBufferPool.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <set>
#include <thread>

#include "OrvelAgent/Platform/Linux/PictureForTests.h"

namespace orvel {
namespace {

constexpr int width = 70, height = 50;  // no whole number of tiles

TEST(PixelBufferPool, convertsColoursAsBT601InLimitedRange) {
    const std::uint32_t colours[] = {0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00,
                                     0x0000FF, 0x808080, 0x123456, 0xFEDCBA};
    Canvas canvas(width, height);
    for (int i = 0; i < 8; ++i)
        canvas.fill({i * 8, 0, 8, height}, colours[i]);
    PixelBufferPool pool(width, height, 1);
    EXPECT_TRUE(shows(*pool.picture(canvas.pixels(), ChangedTiles(width, height), 1), canvas));
}

TEST(PixelBufferPool, everyBufferCatchesUpWithWhatItMissed) {
    constexpr int depth = 4, seed = 7;
    std::mt19937 random(seed);
    Canvas canvas(width, height);
    PixelBufferPool pool(width, height, depth);
    std::vector<std::shared_ptr<const PixelBuffer>> held;
    for (std::uint64_t number = 1; number <= 200; ++number) {
        // Readers let go in any order.
        while (!pool.hasFree() || (!held.empty() && random() % 2))
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(random() % held.size()));
        const Rect part = canvas.randomPart(random);
        canvas.fill(part, random() & 0xFFFFFF);
        ChangedTiles changed(width, height);
        changed.add(part);
        held.push_back(pool.picture(canvas.pixels(), changed, number));
        ASSERT_EQ(held.back()->sequence, number);
        ASSERT_TRUE(shows(*held.back(), canvas)) << "picture " << number << ", seed " << seed;
    }
}

TEST(PixelBufferPool, saysWhatDiffersFromThePictureBefore) {
    Canvas canvas(width, height);
    PixelBufferPool pool(width, height, 3);
    ChangedTiles changed(width, height);
    const auto first = pool.picture(canvas.pixels(), changed, 5);
    EXPECT_EQ(first->changed, (std::vector<Rect>{{0, 0, width, height}}));
    changed.add(Rect{20, 20, 3, 3});
    const auto second = pool.picture(canvas.pixels(), changed, 6);
    // Although this buffer is new and was filled as a whole.
    EXPECT_EQ(second->changed, (std::vector<Rect>{{16, 16, 16, 16}}));
}

TEST(PixelBufferPool, growsOnlyAsFarAsItsReadersMakeItAndNoFurtherThanItsDepth) {
    Canvas canvas(width, height);
    const ChangedTiles none(width, height);
    std::uint64_t sequence = 0;
    PixelBufferPool pool(width, height, 3);
    std::set<const std::uint8_t*> memories;
    for (int i = 0; i < 10; ++i)
        memories.insert(pool.picture(canvas.pixels(), none, ++sequence)->luma);
    EXPECT_EQ(memories.size(), 1u);
    std::vector<std::shared_ptr<const PixelBuffer>> held;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(pool.hasFree());
        held.push_back(pool.picture(canvas.pixels(), none, ++sequence));
    }
    EXPECT_FALSE(pool.hasFree());
    const auto* freed = held[1]->luma;
    held.erase(held.begin() + 1);
    ASSERT_TRUE(pool.hasFree());
    EXPECT_EQ(pool.picture(canvas.pixels(), none, ++sequence)->luma, freed);
}

TEST(PixelBufferPool, aPictureOutlivesThePoolAndMayEndOnAnotherThread) {
    Canvas canvas(width, height);
    canvas.fill({0, 0, width, height}, 0x336699);
    std::optional<PixelBufferPool> pool(std::in_place, width, height, 2);
    auto picture = pool->picture(canvas.pixels(), ChangedTiles(width, height), 1);
    pool.reset();
    std::thread reader([&] {
        EXPECT_TRUE(shows(*picture, canvas));
        picture.reset();
    });
    reader.join();
}

TEST(PixelBufferPoolDeathTest, aPictureMoreThanThereAreBuffersStopsTheProcess) {
    Canvas canvas(width, height);
    const ChangedTiles none(width, height);
    std::uint64_t sequence = 0;
    PixelBufferPool pool(width, height, 1);
    const auto held = pool.picture(canvas.pixels(), none, ++sequence);
    EXPECT_DEATH(pool.picture(canvas.pixels(), none, ++sequence), "");
}

}  // namespace
}  // namespace orvel
