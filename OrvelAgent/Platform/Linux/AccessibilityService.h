#pragma once

#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/Linux/AsyncBus.h"

namespace orvel {

// The desktop session's accessibility: switched on as long as this lives, and where its bus is.
//
// Qt asks for the switch when it changes too, browsers only when they start: one that was started
// while it was off stays mute. It is therefore switched on from the beginning, which costs little
// while nobody listens. The switch of screen readers is left alone: some desktops start one then.
//
// Used and destroyed on the queue, owned by a shared_ptr.
class AccessibilityService : public std::enable_shared_from_this<AccessibilityService> {
public:
    explicit AccessibilityService(SerialQueue& queue);
    // Switches off again what was off before, unless a screen reader has come since.
    ~AccessibilityService();

    // The address of the bus, whenever it has changed; empty when it is gone.
    std::function<void(const std::string&)> onAddress;

    // Connects to the session and starts its accessibility where that is installed. Does nothing
    // when that is done already. Without a session, or when its bus was lost, it may be tried
    // again.
    void start();
    const std::string& address() const { return busAddress; }

private:
    void askAddress(bool mayStart);
    void setAddress(const std::string& address);
    void switchOn();
    void received(const BusSignal& signal);

    SerialQueue& queue;
    std::shared_ptr<AsyncBus> session;
    std::string busAddress;
    bool wasSwitchedOn = false;  // by us; desktops remember it, and so tell it the next service
    bool hasScreenReader = false;
};

}  // namespace orvel
