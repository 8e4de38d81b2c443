#pragma once

#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The element of the user interface that has the keyboard focus, by the desktop's accessibility.
// Made with the main queue; every call is made there and none waits for another program.
class TextFocus {
public:
    // In the words of one system's accessibility, into which others are translated: "AXTextField"
    // for a line of text, passwords too, "AXTextArea" for more lines, "AXComboBox",
    // "AXSearchField". Other roles are not looked at.
    struct Element {
        std::optional<std::string> role;
        bool canSelectText = false;  // its range of selected text can be set
        bool operator==(const Element&) const = default;
    };

    virtual ~TextFocus() = default;
    // Whether anybody will ask: applications work more while somebody listens. Off at first.
    virtual void setObserved(bool observed) = 0;
    // As far as is known now; nullopt: nothing, no permission, or not observed.
    virtual std::optional<Element> focusedElement() = 0;

    static std::unique_ptr<TextFocus> create(SerialQueue& mainQueue);
};

}  // namespace orvel
