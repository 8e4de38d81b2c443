#pragma once

#include "OrvelAgent/Platform/Linux/VirtualDevices.h"

namespace orvel {

// Keeps the server from repeating keys that are held on the virtual keyboard: the phone repeats by
// itself. The keyboards on the desk go on repeating. Belongs to one thread; waits for the server
// and throws X11Failure.
//
// The server repeats by the controls of the master keyboard, which takes them from the keyboard
// used last. So the virtual one's are changed, and the master's too when that was the virtual one.
class KeyRepeat {
public:
    // Both outlive this.
    KeyRepeat(const X11Connection& x11, const VirtualDevices& devices);

    // Until resume(). Cheap when it has been done; somebody else may have switched it on since.
    void suspend();
    // As it was.
    void resume();
    bool isSuspended() const { return suspended; }
    // After a crash of the one who suspended it.
    void recover();

    // True: the event was about the keyboards' controls.
    bool handle(const xcb_generic_event_t& event);

private:
    void set(bool wanted);

    const X11Connection& x11;
    const VirtualDevices& devices;
    std::uint8_t xkbEvent = 0;
    bool suspended = false;
    bool isUpToDate = false;
};

}  // namespace orvel
