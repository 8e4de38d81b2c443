#include "OrvelAgent/Core/StrangerLimits.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

TEST(StrangerLimits, anAddressThatHasItsFillLosesItsOldestHandshake) {
    StrangerLimits limits;
    EXPECT_EQ(limits.connected(1, "other"), std::nullopt);
    for (StrangerLimits::ID id = 2; id < 18; ++id)
        EXPECT_EQ(limits.connected(id, "a"), std::nullopt);
    EXPECT_EQ(limits.connected(18, "a"), 2u);
    EXPECT_EQ(limits.connected(19, "a"), 3u);
    EXPECT_EQ(limits.connected(20, "b"), std::nullopt);
}

TEST(StrangerLimits, theOldestOfAllGoesWhenAllAreTooMany) {
    StrangerLimits limits;
    for (StrangerLimits::ID id = 1; id <= 64; ++id) {
        EXPECT_EQ(limits.connected(id, std::to_string(id % 8)), std::nullopt);
    }
    EXPECT_EQ(limits.connected(65, "new"), 1u);
    limits.forget(2);
    EXPECT_EQ(limits.connected(66, "new"), std::nullopt);
}

TEST(StrangerLimits, theNewestStrangerIsRefusedButNeverAKnownPhone) {
    StrangerLimits limits;
    StrangerLimits::ID id = 0;
    const auto secured = [&](const std::string& address, bool isKnown) {
        EXPECT_EQ(limits.connected(++id, address), std::nullopt);
        return limits.secured(id, isKnown);
    };
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(secured("a", false));
    EXPECT_FALSE(secured("a", false));
    EXPECT_TRUE(secured("a", true));
    for (int i = 4; i < 32; ++i)
        EXPECT_TRUE(secured(std::to_string(i), false)) << i;
    EXPECT_FALSE(secured("b", false));
    EXPECT_TRUE(secured("b", true));
    limits.forget(1);  // one of a's four was admitted
    EXPECT_TRUE(secured("b", false));
}

}  // namespace
}  // namespace orvel
