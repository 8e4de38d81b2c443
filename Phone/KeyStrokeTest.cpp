#include "Phone/KeyStroke.h"

#include <gtest/gtest.h>

namespace orvel::phone {

namespace {

constexpr std::uint8_t shift = Modifiers::shift, control = Modifiers::control,
                       option = Modifiers::option, command = Modifiers::command,
                       function = Modifiers::function;

struct Row {
    const char* text;
    std::uint16_t code;
    std::uint8_t modifiers;
};

constexpr Row rows[] = {
    {"a", 0, 0},
    {"A", 0, shift},
    {"cmd+shift+a", 0, command | shift},
    {"Shift+CMD+a", 0, command | shift},
    {"ctrl+alt+del", 117, control | option},
    {"fn+option+control+super+tab", 48, function | option | control | command},
    {"f1", 122, 0},
    {"F12", 111, 0},
    {"f", 3, 0},
    {"up", 126, 0},
    {"Enter", 36, 0},
    {"backspace", 51, 0},
    {"ş", 41, 0},
    {"cmd+ı", 34, command},
    {"-", 27, 0},
    {"+", 24, shift},
    {"cmd++", 24, command | shift},
    {"cmd+plus", 24, command | shift},
    {"code:65535", 65535, 0},
    {"shift+code:10", 10, shift},
};

TEST(KeyStroke, namesAndCharactersAreKeys) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const KeyStroke expected{row.code, Modifiers{row.modifiers}};
        EXPECT_EQ(KeyStroke::parse(row.text), expected);
    }
    for (const char* text : {"", "cmd+", "cmd", "a+b", "+a", "hyper+a", "f0", "f13", "f1x",
                             "code:", "code:65536", "code:-1", "ab", "€", "\xff"}) {
        EXPECT_EQ(KeyStroke::parse(text), std::nullopt) << text;
    }
    for (const std::string& name : KeyStroke::names()) {
        EXPECT_EQ(KeyStroke::parse(name).has_value(), name != "f1 to f12") << name;
    }
}

}  // namespace

}  // namespace orvel::phone
