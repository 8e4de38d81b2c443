#include "OrvelAgent/Platform/Linux/ChangeEnergy.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Platform/Fake/FakePixelBuffer.h"
#include "OrvelAgent/Platform/Fake/SyntheticScreen.h"

namespace orvel {
namespace {

using Scene = SyntheticScreen::Scene;

TEST(ChangeEnergy, growsFromAnEmptyPageOverTextToNoise) {
    const auto perBlock = [](const PixelBuffer& picture) {
        return pictureEnergy(picture) / BlockMap(picture.width, picture.height).count();
    };
    EXPECT_EQ(perBlock(*FakePixelBuffer::grey(640, 360, 1)), 0);
    const double text = perBlock(*SyntheticScreen(640, 360, Scene::scroll).next());
    const double noise = perBlock(*SyntheticScreen(640, 360, Scene::noise).next());
    EXPECT_GT(text, 2);
    EXPECT_LT(text, 20);
    EXPECT_GT(noise, 60);
}

TEST(ChangeEnergy, ofAChangeIsBoundedByTheDifferenceAndByThePicture) {
    const auto before = SyntheticScreen(640, 360, Scene::noise, 1).next();
    const auto after = SyntheticScreen(640, 360, Scene::noise, 2).next();
    BlockMap blocks(640, 360);
    EXPECT_EQ(changeEnergy(*after, *after, blocks), 0) << "nothing differs";
    EXPECT_GT(changeEnergy(*after, *before, blocks), 0.8 * pictureEnergy(*after));
    const auto grey = FakePixelBuffer::grey(640, 360, 2);
    EXPECT_EQ(changeEnergy(*grey, *before, blocks), 0) << "differs, but is easy to code";
}

TEST(ChangeEnergy, countsOnlyTheMarkedBlocks) {
    const auto before = SyntheticScreen(640, 360, Scene::noise, 1).next();
    const auto after = SyntheticScreen(640, 360, Scene::noise, 2).next();
    BlockMap blocks(640, 360);
    const double all = changeEnergy(*after, *before, blocks);
    blocks.mark({{0, 0, 320, 360}});
    EXPECT_NEAR(changeEnergy(*after, *before, blocks) / all, 0.5, 0.05);
    blocks.markNone();
    EXPECT_EQ(changeEnergy(*after, *before, blocks), 0);
}

// The sanitizer watches the edges.
TEST(ChangeEnergy, readsOnlyInsideThePicture) {
    for (const auto& [width, height] : {std::pair(2, 2), {2, 200}, {200, 2}, {18, 18}, {46, 50}}) {
        SCOPED_TRACE(testing::Message() << width << "x" << height);
        SyntheticScreen screen(width, height, Scene::noise);
        const auto before = screen.next(), after = screen.next();
        EXPECT_GT(pictureEnergy(*after), 0);
        EXPECT_GT(changeEnergy(*after, *before, BlockMap(width, height)), 0);
    }
}

}  // namespace
}  // namespace orvel
