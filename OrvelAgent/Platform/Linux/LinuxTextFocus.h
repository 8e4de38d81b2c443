#pragma once

#include <memory>

#include "OrvelAgent/Platform/Linux/AccessibilityService.h"
#include "OrvelAgent/Platform/Linux/FocusObserver.h"
#include "OrvelAgent/Platform/TextFocus.h"

namespace orvel {

// By the desktop's accessibility bus (AT-SPI 2). Everything that speaks to others happens on
// "orvel.focus"; without a desktop session there is just never an element. Accessibility is
// switched on for the session as long as this object lives, see AccessibilityService.
class LinuxTextFocus : public TextFocus {
public:
    explicit LinuxTextFocus(SerialQueue& mainQueue);
    // Waits for what "orvel.focus" is doing: nothing, or waiting two seconds at most for a bus.
    ~LinuxTextFocus() override;

    void setObserved(bool observed) override;
    std::optional<Element> focusedElement() override;

private:
    // What the main queue knows.
    struct Known {
        std::optional<Element> element;
    };

    void observe(const std::weak_ptr<Known>& destination) RUNS_ON(queue);

    SerialQueue& mainQueue;
    std::shared_ptr<Known> known OWNED_BY(mainQueue);  // while observed
    std::shared_ptr<AccessibilityService> service OWNED_BY(queue);
    std::shared_ptr<FocusObserver> observer OWNED_BY(queue);
    SerialQueue queue{"orvel.focus"};  // last: its thread ends before the fields do
};

}  // namespace orvel
