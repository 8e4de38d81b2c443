#pragma once

#include <memory>

#include "OrvelAgent/Platform/StateStores.h"

namespace orvel {

// The socket by which commands of the same user reach the agent that runs on a state: a local
// stream socket beside the lock, which nobody else may open, however long the folder's path is.
// Descriptors are close-on-exec; whoever gets one closes it.
class ControlSocket {
public:
    // Listens in the place of whatever an earlier agent left there: only the owner of the lock
    // may. Null when there can be none, with a log line; the agent runs without. The lock outlives
    // it.
    static std::unique_ptr<ControlSocket> listen(const InstanceLock& lock);
    // Removes it, unless somebody else's has taken its place.
    virtual ~ControlSocket() = default;

    virtual int takeListener() = 0;  // once

    // The agent of this user on this state; -1 when there is none. Does not wait; the descriptor
    // does not block.
    static int connect(const StateLocation& location);

    // Whether the other end of a connected local socket belongs to this process's user or to root,
    // who can do everything anyway.
    static bool isOfOwnUser(int descriptor);
};

}  // namespace orvel
