#include "OrvelKit/Base/Printable.h"

#include <gtest/gtest.h>

namespace orvel {

namespace {

TEST(Printable, whatWouldSteerATerminalIsEscaped) {
    static constexpr std::pair<std::string_view, const char*> rows[] = {
        {"Şu ılık çöğüş 👍🏽", "Şu ılık çöğüş 👍🏽"},
        {"a\x1b[2J\x07z", "a\\x1b[2J\\x07z"},
        {"one\ntwo\r\tthree\x7f", "one\\ntwo\\r\\tthree\\x7f"},
        {"\xc2\x9b"
         "31m",
         "\\u{9b}31m"},
        {"gpj.\u202Eexe", "gpj.\\u{202e}exe"},
        {"\u2028\u2066", "\\u{2028}\\u{2066}"},
        {"a\xff\xc3", "a\\xff\\xc3"},
        {std::string_view("\0", 1), "\\x00"},
        {"\uEFFF kept", "\uEFFF kept"},
    };
    for (const auto& [text, shown] : rows)
        EXPECT_EQ(printable(text), shown);
}

}  // namespace

}  // namespace orvel
