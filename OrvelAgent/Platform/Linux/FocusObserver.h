#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "OrvelAgent/Platform/Linux/AccessibleTree.h"

namespace orvel {

// Follows the keyboard focus over the accessibility bus. It speaks AT-SPI's own D-Bus interfaces:
// libatspi would do so on GLib's default main loop, which a headless agent does not run, and wait
// there for whichever application it asks.
//
// Used and destroyed on the queue, owned by a shared_ptr; its end takes our registration with it.
class FocusObserver : public std::enable_shared_from_this<FocusObserver> {
public:
    using Element = TextFocus::Element;

    explicit FocusObserver(SerialQueue& queue);
    FocusObserver(const FocusObserver&) = delete;
    FocusObserver& operator=(const FocusObserver&) = delete;

    // What has the focus, when that has changed; nullopt: nothing that is known.
    std::function<void(const std::optional<Element>&)> onElement;

    // Leaves the bus it was on; an empty address, or nobody there: knows nothing from then on.
    void connect(const std::string& address);

private:
    void registerEvents() RUNS_ON(queue);
    // For what has the focus already.
    void lookAround() RUNS_ON(queue);
    void lookAt(const std::string& application) RUNS_ON(queue);
    void received(const BusSignal& signal) RUNS_ON(queue);
    void vanished(const std::string& application) RUNS_ON(queue);
    void gained(const AccessibleRef& element) RUNS_ON(queue);
    void lost() RUNS_ON(queue);
    void follow(const AccessibleRef& element) RUNS_ON(queue);
    void inquire(const AccessibleRef& element) RUNS_ON(queue);
    void described(const AccessibleRef& element, const std::optional<AccessibleState>& state)
        RUNS_ON(queue);
    void undescribed(const AccessibleRef& element) RUNS_ON(queue);
    void activated(const AccessibleRef& window) RUNS_ON(queue);
    void searchSoon(const AccessibleRef& window, std::size_t tries) RUNS_ON(queue);
    void forget() RUNS_ON(queue);
    void report(const std::optional<Element>& element) RUNS_ON(queue);

    SerialQueue& queue;
    std::shared_ptr<AsyncBus> bus OWNED_BY(queue);
    int registering OWNED_BY(queue) = 0;                   // answers to come
    std::string activeApplication OWNED_BY(queue);         // that has the active window
    std::optional<AccessibleRef> focused OWNED_BY(queue);  // the newest
    std::optional<Element> reported OWNED_BY(queue);       // of it, or still of the one before
    // The newest of an application that may not be active, while it is asked.
    std::map<std::string, AccessibleRef> unsure OWNED_BY(queue);
    std::set<std::string> inquiries OWNED_BY(queue);  // under way: application and path
    bool mustInquire OWNED_BY(queue) = false;         // when there is room
    int retries OWNED_BY(queue) = 0;                  // of `focused`
    Timer losing OWNED_BY(queue), searching OWNED_BY(queue);
};

}  // namespace orvel
