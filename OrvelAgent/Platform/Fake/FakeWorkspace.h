#pragma once

#include <utility>

#include "OrvelAgent/Platform/Workspace.h"

namespace orvel {

// The test activates applications, on the main queue.
class FakeWorkspace : public Workspace {
public:
    void activate(Application application) {
        front = std::move(application);
        if (const auto told = handler) told(front);
    }
    bool isObserved() const { return handler != nullptr; }

    Application front;

    Application frontmost() override { return front; }
    void observeActivations(std::function<void(const Application&)> newHandler) override {
        handler = std::move(newHandler);
    }

private:
    std::function<void(const Application&)> handler;
};

}  // namespace orvel
