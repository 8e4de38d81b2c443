#pragma once

#include <string>
#include <utility>
#include <vector>

#include "OrvelAgent/Platform/UpdateDriver.h"

namespace orvel {

// A driver that does as a test says and records what it is asked for. One thread.
class FakeUpdateDriver : public UpdateDriver {
public:
    bool interface = false;
    bool configured = true;
    bool checkable = true;
    bool automatic = true;
    Callbacks callbacks;
    std::vector<std::string> calls;  // "check", "install", "skip", "dismiss", "automatic off"

    void start(Callbacks given) override { callbacks = std::move(given); }
    bool hasInterface() const override { return interface; }
    bool isConfigured() const override { return configured; }
    bool canCheck() const override { return checkable; }
    bool automaticallyChecks() const override { return automatic; }
    void setAutomaticallyChecks(bool checks) override {
        automatic = checks;
        calls.push_back(checks ? "automatic on" : "automatic off");
    }
    void checkForUpdates() override { calls.push_back("check"); }
    void install() override { calls.push_back("install"); }
    void skip() override { calls.push_back("skip"); }
    void dismiss() override { calls.push_back("dismiss"); }

    void setCheckable(bool can) {
        checkable = can;
        callbacks.onCanCheck();
    }
    void become(UpdateState state) { callbacks.onState(state); }
};

}  // namespace orvel
