#pragma once

#include <memory>

#include "Tests/Support/PrivateBus.h"

namespace orvel {

// A gnome-keyring daemon of the test's own: a Secret Service on a private session bus, with its
// files in a folder that lives as long as this object.
class KeyringDaemon {
public:
    explicit KeyringDaemon(const PrivateBus& bus);  // starts unlocked; throws std::runtime_error

    void stop() { daemon.reset(); }
    void startUnlocked() { start(true); }
    // As after a login without a password: what was stored is there, but locked.
    void startLocked() { start(false); }
    BackgroundProcess& process() { return *daemon; }

private:
    void start(bool unlocked);

    const PrivateBus& bus;
    TemporaryFolder folder;
    std::unique_ptr<BackgroundProcess> daemon;
};

}  // namespace orvel
