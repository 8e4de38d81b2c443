#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/AccessibleState.h"
#include "OrvelAgent/Platform/Linux/AsyncBus.h"

namespace orvel {

// An element of an application's user interface on the accessibility bus.
struct AccessibleRef {
    std::string application;  // unique name
    std::string path;
    bool operator==(const AccessibleRef& other) const {
        return application == other.application && path == other.path;
    }
    bool operator!=(const AccessibleRef& other) const { return !(*this == other); }
};

// Questions to applications. Each waits a second for each answer at most and holds up no other;
// `done` is called once, on the bus's queue, unless the bus is destroyed before.
class AccessibleTree {
public:
    template <class Result>
    using Done = UniqueFunction<void(Result)>;

    explicit AccessibleTree(const std::shared_ptr<AsyncBus>& bus);

    // nullopt, or none: no answer, or nonsense.
    void describe(const AccessibleRef& element, Done<std::optional<AccessibleState>> done) const;
    void states(const AccessibleRef& element, Done<std::optional<std::uint64_t>> done) const;
    void children(const AccessibleRef& element, Done<std::vector<AccessibleRef>> done) const;

    // All that are on the bus, each as its root element.
    void applications(Done<std::vector<AccessibleRef>> done) const;
    // The window of an application that is active.
    void activeWindow(const std::string& application,
                      Done<std::optional<AccessibleRef>> done) const;
    // The element with the focus below `window`; looks at a few hundred at most.
    void focusedElement(const AccessibleRef& window, Done<std::optional<AccessibleRef>> done) const;

    // Browsers make the insides of a window known to those only who ask for its attributes.
    void wake(const AccessibleRef& window) const;

private:
    void ask(const AccessibleRef& element, const char* method, AsyncBus::Answer answer) const;

    std::weak_ptr<AsyncBus> weakBus;  // which holds those who wait for an answer
};

}  // namespace orvel
