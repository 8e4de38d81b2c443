#include "OrvelAgent/Platform/Linux/SpareKeys.h"

#include <gtest/gtest.h>

#include <string>

namespace orvel {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds rest(150);

// Those keys with their characters: "200=ab".
std::string text(const SpareKeys& keys, const std::vector<KeyCodeX>& codes) {
    std::string line;
    for (const auto code : codes) {
        const auto [plain, shifted] = keys.charactersOf(code);
        line += (line.empty() ? "" : " ") + std::to_string(code) + '=' + static_cast<char>(plain) +
                static_cast<char>(shifted);
    }
    return line;
}

TEST(SpareKeys, giveWayToNewCharactersTheLongestUnusedFirst) {
    SpareKeys keys;
    keys.setCodes({200, 201});
    MonotonicTime now{};
    const auto lend = [&](const std::vector<char32_t>& wanted) {
        return text(keys, keys.lend(wanted, now, rest).changed);
    };
    EXPECT_EQ(lend({'a', 'b'}), "200=aa 201=bb") << "alone, with Shift or without";
    EXPECT_EQ(keys.find('a')->readyAt, now + SpareKeys::grace);
    EXPECT_EQ(lend({'b', 'a'}), "") << "they have theirs";
    EXPECT_EQ(lend({'c'}), "200=ac");
    EXPECT_TRUE(keys.find('c')->withShift);

    now += rest;
    keys.markUsed('a', now);
    EXPECT_EQ(lend({'d', 'a', 'e', 'f', 'g'}), "200=af 201=ed") << "not the place of a";
    EXPECT_FALSE(keys.find('g')) << "as many as there are";

    now += milliseconds(1);
    const auto plan = keys.lend({'x', 'y'}, now, rest);
    EXPECT_EQ(plan.waitUntil, now - milliseconds(1) + rest) << "all are in use";
    for (const char32_t used : {'d', 'e', 'f'})
        keys.markUsed(used, now);
    now = *plan.waitUntil;
    EXPECT_EQ(lend({'x', 'y'}), "200=xf") << "what may go, goes";
    EXPECT_EQ(keys.lastUse(), now);

    keys.markRead(now);
    EXPECT_EQ(lend({'x', 'y', 'z'}), "200=xz 201=yd") << "the program has read all that";
    EXPECT_EQ(lend({'d', 'e'}), "200=ez");

    keys.setCodes({201, 210});
    EXPECT_EQ(text(keys, keys.lent()), "201=yd") << "another layout needs 200 itself";
    EXPECT_EQ(lend({'x'}), "210=xx");
    keys.forget(201);
    EXPECT_EQ(text(keys, keys.lent()), "210=xx");
    keys.forgetAll();
    EXPECT_FALSE(keys.lastUse());
}

}  // namespace
}  // namespace orvel
