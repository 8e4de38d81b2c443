#include "OrvelAgent/Desk/EscapedName.h"

#include <gtest/gtest.h>

#include "OrvelKit/Wire/Control.h"

namespace orvel {
namespace {

TEST(EscapedName, escapesWhatJsonCannotHoldAndNothingElse) {
    const struct {
        const char* name;
        std::string raw, escaped;
    } rows[] = {
        {"nothing", "", ""},
        {"letters of all kinds", "Şu ılık çöğüş 👍🏽.txt",
         "Şu ılık çöğüş 👍🏽.txt"},
        {"signs that other ways of escaping use", "a\\b%20\"c?\n", "a\\b%20\"c?\n"},
        {"Latin-1", "\xE7\xF6p", "\uEFE7\uEFF6p"},
        {"the lowest byte and the highest", "\x80\xFF", "\uEF80\uEFFF"},
        {"both halves", "\xBF\xC0", "\uEFBF\uEFC0"},
        {"a character cut short", "a\xE2\x82", "a\uEFE2\uEF82"},
        {"the escape itself", "\uEF80", "\uEFEE\uEFBE\uEF80"},
        {"the last escape itself", "\uEFFF", "\uEFEE\uEFBF\uEFBF"},
        {"its neighbours", "\uEF7F\uF000", "\uEF7F\uF000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(EscapedName::escape(row.raw), row.escaped);
        EXPECT_EQ(EscapedName::unescape(row.escaped), row.raw);
    }
}

TEST(EscapedName, everyPairOfBytesComesBackThroughJson) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string name = {'x', static_cast<char>(first), static_cast<char>(second)};
            const Control sent{Control::FetchFile{1, EscapedName::escape(name)}};
            const Control received = Control::fromJson(sent.toJson());
            ASSERT_EQ(EscapedName::unescape(received.as<Control::FetchFile>()->path), name)
                << first << " " << second;
        }
    }
}

TEST(EscapedName, readsBackWhatIsNoUtf8AsItIs) {
    EXPECT_EQ(EscapedName::unescape("a\xFF\xEE\xBE"), "a\xFF\xEE\xBE");
}

}  // namespace
}  // namespace orvel
