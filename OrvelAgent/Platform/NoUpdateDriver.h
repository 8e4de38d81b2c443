#pragma once

#include "OrvelAgent/Platform/UpdateDriver.h"

namespace orvel {

// Where nothing could look for new versions: a build without a feed or without the system's update
// framework, a system with other packages.
class NoUpdateDriver final : public UpdateDriver {
public:
    void start(Callbacks) override {}
    bool hasInterface() const override { return false; }
    bool isConfigured() const override { return false; }
    bool canCheck() const override { return false; }
    bool automaticallyChecks() const override { return false; }
    void setAutomaticallyChecks(bool) override {}
    void checkForUpdates() override {}
    void install() override {}
    void skip() override {}
    void dismiss() override {}
};

}  // namespace orvel
