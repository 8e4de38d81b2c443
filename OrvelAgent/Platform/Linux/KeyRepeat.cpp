#include "OrvelAgent/Platform/Linux/KeyRepeat.h"

#include <utility>
#include <vector>

#include "OrvelAgent/Platform/Linux/XkbHeader.h"

namespace orvel {

KeyRepeat::KeyRepeat(const X11Connection& connection, const VirtualDevices& virtualDevices)
    : x11(connection), devices(virtualDevices) {
    if (const auto* xkb = x11.extension(xcb_xkb_id)) xkbEvent = xkb->first_event;
}

void KeyRepeat::suspend() {
    // A change by somebody else is told by an event, which is what makes it out of date.
    if (isUpToDate) return;
    isUpToDate = true;
    if (!devices.repeats(devices.keyboard())) return;
    set(false);
    suspended = true;
}

void KeyRepeat::resume() {
    isUpToDate = false;
    if (std::exchange(suspended, false)) set(true);
}

void KeyRepeat::recover() {
    suspended = true;
    resume();
}

void KeyRepeat::set(bool wanted) {
    if (!devices.isKeyboardInUse()) return devices.setRepeats(devices.keyboard(), wanted);
    // What is set for the master is set for all of its keyboards.
    std::vector<std::uint16_t> others;
    for (const auto other : devices.otherKeyboards()) {
        if (devices.repeats(other) != wanted) others.push_back(other);
    }
    devices.setRepeats(XCB_XKB_ID_USE_CORE_KBD, wanted);
    for (const auto other : others)
        devices.setRepeats(other, !wanted);
}

bool KeyRepeat::handle(const xcb_generic_event_t& event) {
    if ((event.response_type & 0x7F) != xkbEvent || event.pad0 != XCB_XKB_CONTROLS_NOTIFY)
        return false;
    isUpToDate = false;
    return true;
}

}  // namespace orvel
