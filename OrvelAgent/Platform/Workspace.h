#pragma once

#include <functional>
#include <memory>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Which application the user works with. Made with the main queue; every call is made there, the
// handler is called there, and no call waits for another program.
class Workspace {
public:
    struct Application {
        std::string bundleID;  // what its packaging calls it; empty: unknown
        std::string name;      // in the user's language; empty: unknown
        bool operator==(const Application&) const = default;
    };

    virtual ~Workspace() = default;
    // As far as is known now; both empty when nothing is. That it becomes known is an activation.
    virtual Application frontmost() = 0;
    // Told of each activation from now on, also of the application that is in front already, but
    // never from inside a call. nullptr ends it; a new handler replaces the one before.
    virtual void observeActivations(std::function<void(const Application&)> handler) = 0;

    static std::unique_ptr<Workspace> create(SerialQueue& mainQueue);
};

}  // namespace orvel
