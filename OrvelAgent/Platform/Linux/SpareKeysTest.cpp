#include "OrvelAgent/Platform/Linux/SpareKeys.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

using std::chrono::milliseconds;

// Such as "200=a 201=b".
std::string text(const std::vector<SpareKeys::Key>& keys) {
    std::string line;
    for (const auto& key : keys)
        line += (line.empty() ? "" : " ") + std::to_string(key.code) + '=' +
                static_cast<char>(key.character);
    return line;
}

TEST(SpareKeys, giveWayToNewCharactersTheLongestUnusedFirst) {
    SpareKeys keys;
    keys.setCodes({200, 201, 210});
    MonotonicTime now{};
    EXPECT_EQ(text(keys.lend({'a', 'b'}, now).changed), "200=a 201=b");
    EXPECT_EQ(keys.find('a')->readyAt, now + SpareKeys::grace);
    EXPECT_TRUE(keys.lend({'b', 'a'}, now).changed.empty()) << "they have theirs";
    EXPECT_EQ(text(keys.lend({'c'}, now).changed), "210=c");

    now += milliseconds(30);
    keys.markUsed('a', now);
    now += milliseconds(20);
    EXPECT_EQ(text(keys.lend({'d', 'a', 'e', 'f'}, now).changed), "201=d 210=e")
        << "as many as there are, and not that of a";
    EXPECT_FALSE(keys.find('f'));

    const auto plan = keys.lend({'x', 'y', 'z'}, now);
    EXPECT_EQ(plan.waitUntil, now - milliseconds(20) + SpareKeys::rest) << "all are in use";
    now = *plan.waitUntil;
    EXPECT_EQ(text(keys.lend({'x', 'y', 'z'}, now).changed), "200=x") << "what may go, goes";
    EXPECT_EQ(keys.lastUse(), now);

    keys.setCodes({201, 210, 211});
    EXPECT_EQ(text(keys.lent()), "201=d 210=e") << "another layout needs 200 itself";
    keys.forget(201);
    EXPECT_EQ(text(keys.lent()), "210=e");
    keys.forgetAll();
    EXPECT_FALSE(keys.lastUse());
}

}  // namespace
}  // namespace orvel
