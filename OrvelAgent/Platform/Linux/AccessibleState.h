#pragma once

#include <cstdint>

#include "OrvelAgent/Platform/TextFocus.h"

namespace orvel {

// What an application says about one element of its user interface, in the numbers of AT-SPI 2
// (AtspiRole, AtspiStateType).
struct AccessibleState {
    // Bits of `states`.
    enum State : unsigned {
        active = 1,
        defunct = 6,
        editable = 7,
        enabled = 8,
        focused = 12,
        multiLine = 17,
        sensitive = 24,
        showing = 25,
        visible = 30,
        managesDescendants = 31,
        readOnly = 43
    };
    enum Role : std::uint32_t {
        comboBox = 11,
        passwordText = 40,
        spinButton = 52,
        terminal = 60,
        text = 61,
        editBar = 77,
        entry = 79,
        documentFrame = 82,
        documentText = 94,
        documentEmail = 96
    };

    std::uint32_t role = 0;
    std::uint64_t states = 0;
    bool hasText = false;  // the Text interface
    bool hasEditableText =
        false;              // the EditableText interface; some have it without being editable
    bool isSearch = false;  // by its attributes
    bool hasEditablePart = false;  // asked of a combo box: a field among its children

    bool has(State state) const { return (states >> state & 1) != 0; }

    // An empty one when the keyboard types no text into it.
    TextFocus::Element element() const;
};

}  // namespace orvel
