// Core Graphics' contract: a process has a session dictionary when it belongs to a login at the
// screen; one started over SSH or for the whole computer has none, and AppKit would end it.
#include <ApplicationServices/ApplicationServices.h>

#include "OrvelAgent/Platform/MacOS/CFOwner.h"
#include "OrvelAgent/Platform/WindowSystem.h"

namespace orvel {

bool prepareWindowSystem() {
    const CFOwner<CFDictionaryRef> session(CGSessionCopyCurrentDictionary());
    return static_cast<bool>(session);
}

}  // namespace orvel
