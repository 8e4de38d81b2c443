#include "OrvelAgent/Platform/Linux/PictureScaler.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "OrvelAgent/Platform/Linux/PictureForTests.h"

namespace orvel {
namespace {

struct Sizes {
    const char* name;
    int sourceWidth, sourceHeight, width, height;
};

const Sizes allSizes[] = {
    {"the same", 320, 200, 320, 200},
    {"an odd edge less", 321, 201, 320, 200},
    {"three quarters", 320, 200, 240, 150},
    {"a bit less", 366, 200, 350, 190},
    {"one edge only", 320, 200, 320, 150},
    {"half", 320, 200, 160, 100},
    {"a third", 390, 240, 130, 80},
    {"a third of an odd one", 391, 241, 130, 80},
    {"a quarter", 400, 240, 100, 60},
    {"less than a fifth", 401, 243, 76, 46},
    {"larger", 160, 100, 202, 126},
    {"much larger", 50, 40, 320, 256},
    {"larger and smaller", 160, 200, 202, 126},
};

std::vector<std::uint32_t> copyOf(const BgrxPixels& pixels, int width, int height) {
    std::vector<std::uint32_t> copy(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        std::memcpy(&copy[static_cast<std::size_t>(y) * width],
                    pixels.data + std::ptrdiff_t{y} * pixels.stride,
                    static_cast<std::size_t>(width) * 4);
    }
    return copy;
}

TEST(PictureScaler, scalingWhatChangedGivesWhatScalingEverythingWould) {
    constexpr int seed = 11;
    for (const auto& sizes : allSizes) {
        SCOPED_TRACE(sizes.name);
        std::mt19937 random(seed);
        Canvas canvas(sizes.sourceWidth, sizes.sourceHeight);
        for (auto& colour : canvas.colours)
            colour = random() & 0xFFFFFF;  // where every pixel tells
        PictureScaler scaler(canvas.width, canvas.height, sizes.width, sizes.height);
        ChangedTiles changed(sizes.width, sizes.height);
        scaler.update(canvas.pixels(), {}, changed);
        for (int round = 0; round < 60; ++round) {
            const auto before = copyOf(scaler.picture(), sizes.width, sizes.height);
            std::vector<Rect> parts;
            for (int i = 0; i <= round % 3; ++i) {
                const Rect part = canvas.randomPart(random);
                parts.push_back(round % 2 ? part : Rect{part.x, part.y, 1, 1});
                canvas.fill(parts.back(), random() & 0xFFFFFF);
            }
            changed.clear();
            scaler.update(canvas.pixels(), parts, changed);
            const auto got = copyOf(scaler.picture(), sizes.width, sizes.height);

            PictureScaler whole(canvas.width, canvas.height, sizes.width, sizes.height);
            ChangedTiles ignored(sizes.width, sizes.height);
            whole.update(canvas.pixels(), {}, ignored);
            ASSERT_EQ(got, copyOf(whole.picture(), sizes.width, sizes.height)) << "round " << round;

            // And all that differs was named. Where nothing is scaled, `before` is the source.
            if (sizes.sourceWidth / 2 == sizes.width / 2) continue;
            Canvas named(sizes.width, sizes.height);
            for (const Rect& part : changed.rects())
                named.fill(part, 1);
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_TRUE(got[i] == before[i] || named.colours[i]) << "pixel " << i;
        }
    }
}

// The mean of the picture's green: a filter that leaves pixels out gets it wrong on fine patterns.
double meanGreen(const PictureScaler& scaler, int width, int height) {
    double sum = 0;
    for (const std::uint32_t colour : copyOf(scaler.picture(), width, height))
        sum += colour >> 8 & 255;
    return sum / width / height;
}

TEST(PictureScaler, noThinLineFallsBetweenTheSamples) {
    for (const auto& sizes : allSizes) {
        if (sizes.width > sizes.sourceWidth) continue;
        SCOPED_TRACE(sizes.name);
        for (int line = 0; line < 8; ++line) {
            Canvas canvas(sizes.sourceWidth, sizes.sourceHeight);
            for (int x = line; x < canvas.width; x += 8)
                canvas.fill({x, 0, 1, canvas.height}, 0x00FF00);
            PictureScaler scaler(canvas.width, canvas.height, sizes.width, sizes.height);
            ChangedTiles changed(sizes.width, sizes.height);
            scaler.update(canvas.pixels(), {}, changed);
            const double want = 255.0 / 8;
            EXPECT_NEAR(meanGreen(scaler, sizes.width, sizes.height), want, want * 0.35);
        }
    }
}

TEST(PictureScaler, aChangeInOneCornerLeavesTheOthersAlone) {
    Canvas canvas(1280, 960);
    PictureScaler scaler(canvas.width, canvas.height, 400, 300);
    ChangedTiles changed(400, 300);
    scaler.update(canvas.pixels(), {}, changed);
    changed.clear();
    canvas.fill({1000, 800, 20, 20}, 0xFFFFFF);
    scaler.update(canvas.pixels(), {{1000, 800, 20, 20}}, changed);
    for (const Rect& part : changed.rects()) {
        EXPECT_GE(part.x, 288);
        EXPECT_GE(part.y, 224);
        EXPECT_LE(part.width, 48);
        EXPECT_LE(part.height, 48);
    }
}

}  // namespace
}  // namespace orvel
