#include "OrvelAgent/Update/UpdateSource.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

TEST(UpdateSource, needsAFeedAndAKeyThatAreOnes) {
    const std::string feed = "https://h/appcast.xml", key = base64(Bytes(32, 7));
    const auto source = UpdateSource::from(feed, key);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->feed.text(), feed);
    EXPECT_EQ(source->publicKey, Bytes(32, 7));
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {feed, ""},
        {"", key},
        {"http://h/appcast.xml", key},
        {"https:///appcast.xml", key},
        {"appcast.xml", key},
        {feed, base64(Bytes(31, 7))},
        {feed, "key"},
    };
    for (const auto& [a, b] : rows)
        EXPECT_FALSE(UpdateSource::from(a, b)) << a << " " << b;
}

}  // namespace
}  // namespace orvel
