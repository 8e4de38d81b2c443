#include "OrvelAgent/Platform/Linux/AccessibleState.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

using S = AccessibleState;

std::uint64_t bits(std::initializer_list<S::State> states) {
    std::uint64_t all = 0;
    for (const auto state : states)
        all |= std::uint64_t(1) << state;
    return all;
}

const std::uint64_t field = bits({S::enabled, S::sensitive, S::editable, S::focused});
const std::uint64_t button = bits({S::enabled, S::sensitive, S::focused});
const std::uint64_t lines = bits({S::multiLine});
constexpr std::uint32_t section = 85, paragraph = 73, documentWeb = 95, pushButton = 43;

// As the toolkits' elements were seen to describe themselves.
const struct {
    const char* name;
    S state;
    TextFocus::Element want;
} rows[] = {
    {"GTK 3 entry", {S::text, field, true, true}, {"AXTextField", true}},
    {"GTK 4 entry, never enabled",
     {S::text, bits({S::sensitive, S::editable}), true, true},
     {"AXTextField", true}},
    {"text view", {S::text, field | lines, true, true}, {"AXTextArea", true}},
    {"web input", {S::entry, field, true}, {"AXTextField", true}},
    {"web text area", {S::entry, field | lines, true}, {"AXTextArea", true}},
    {"password", {S::passwordText, field, true}, {"AXTextField", true}},
    {"search", {S::entry, field, true, false, true}, {"AXSearchField", true}},
    {"web editable section", {section, field | lines, true}, {std::nullopt, true}},
    {"office paragraph", {paragraph, field | lines, true}, {std::nullopt, true}},
    {"editable document", {S::documentText, field | lines, true}, {"AXTextArea", true}},
    {"terminal", {S::terminal, button | lines, true}, {"AXTextArea", true}},
    {"GTK spin button", {S::spinButton, field, true, true}, {std::nullopt, true}},
    {"Qt spin box", {S::spinButton, button, true, true}, {std::nullopt, true}},
    {"editable combo box", {S::comboBox, field, true}, {"AXComboBox", true}},
    {"Qt editable combo box",
     {S::comboBox, button, false, false, false, true},
     {"AXComboBox", false}},
    {"combo box to choose from", {S::comboBox, button, true}, {}},
    {"editable without text", {section, field}, {}},
    {"button with a text", {pushButton, button, true}, {}},
    {"web page", {documentWeb, button, true}, {}},
    {"GTK read-only entry", {S::text, button, true, true}, {}},
    {"Qt read-only field", {S::text, field | bits({S::readOnly}), true, true}, {}},
    {"web read-only input", {S::entry, bits({S::focused, S::readOnly}), true}, {}},
    {"disabled field", {S::text, bits({S::editable, S::focused}), true, true}, {}},
    {"disabled terminal", {S::terminal, bits({S::focused}), true}, {}},
    {"nothing said", {}, {}},
};

TEST(AccessibleStateTest, itIsTextWhatTakesText) {
    for (const auto& row : rows) {
        const auto element = row.state.element();
        EXPECT_EQ(element.role, row.want.role) << row.name;
        EXPECT_EQ(element.canSelectText, row.want.canSelectText) << row.name;
    }
}

}  // namespace
}  // namespace orvel
