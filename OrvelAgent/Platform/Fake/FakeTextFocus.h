#pragma once

#include "OrvelAgent/Platform/TextFocus.h"

namespace orvel {

// The test sets the element.
class FakeTextFocus : public TextFocus {
public:
    std::optional<Element> element;
    bool isObserved = false;
    int questions = 0;

    void setObserved(bool observed) override { isObserved = observed; }
    std::optional<Element> focusedElement() override {
        ++questions;
        return isObserved ? element : std::nullopt;
    }
};

}  // namespace orvel
