#pragma once

#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Platform/JsonDefaults.h"
#include "OrvelKit/Base/SecretStore.h"

namespace orvel {

// Where this system keeps the agent's state: in the user's own places, or, for a run beside them,
// all of it below one folder.
struct StateLocation {
    std::optional<std::string> folder;  // --state-dir
};

struct StateStores {
    std::unique_ptr<JsonDefaults> defaults;
    std::unique_ptr<SecretStore> secrets;

    // Never fails: a folder that cannot be written makes stores that read what is there and
    // refuse writes, with a log line.
    static StateStores create(const StateLocation& location);
};

// Held for the life of the process: one agent for each state.
class InstanceLock {
public:
    virtual ~InstanceLock() = default;
    enum class Outcome { taken, heldByAnother, unavailable };
    // `unavailable`: the place for the lock cannot be written; the agent runs without one.
    static Outcome acquire(const StateLocation& location, std::unique_ptr<InstanceLock>& lock);

    // Where it lies; the running agent's control socket lies beside it.
    virtual std::string folder() const = 0;
};

}  // namespace orvel
