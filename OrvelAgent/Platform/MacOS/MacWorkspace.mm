// NSWorkspace's contract: its properties and its own notification centre belong to the main thread;
// an observer given with the main operation queue is called there, in the run loop. The token keeps
// the observer until it is removed.
#import <AppKit/AppKit.h>

#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/Workspace.h"

namespace orvel {

namespace {

Workspace::Application describe(NSRunningApplication* application) {
    return {textOf(application.bundleIdentifier), textOf(application.localizedName)};
}

class MacWorkspace final : public Workspace {
public:
    explicit MacWorkspace(SerialQueue& main) : mainQueue(main) {}
    ~MacWorkspace() override { observeActivations(nullptr); }

    Application frontmost() override {
        mainQueue.assertCurrent();
        return describe(NSWorkspace.sharedWorkspace.frontmostApplication);
    }

    void observeActivations(std::function<void(const Application&)> handler) override {
        NSNotificationCenter* const center = NSWorkspace.sharedWorkspace.notificationCenter;
        if (token) [center removeObserver:token];
        token = nil;
        current.reset();
        if (!handler) return;

        current = std::make_shared<const Handler>(std::move(handler));
        const std::weak_ptr<const Handler> weak = current;
        SerialQueue& queue = mainQueue;
        token = [center addObserverForName:NSWorkspaceDidActivateApplicationNotification
                                    object:nil
                                     queue:NSOperationQueue.mainQueue
                                usingBlock:^(NSNotification* notice) {
                                  NSRunningApplication* const application =
                                      notice.userInfo[NSWorkspaceApplicationKey];
                                  queue.post([weak, front = describe(application)] {
                                      if (const auto observer = weak.lock()) (*observer)(front);
                                  });
                                }];
    }

private:
    using Handler = std::function<void(const Application&)>;

    SerialQueue& mainQueue;
    std::shared_ptr<const Handler> current;  // a replaced one hears nothing more
    id<NSObject> token = nil;
};

}  // namespace

std::unique_ptr<Workspace> Workspace::create(SerialQueue& mainQueue) {
    return std::make_unique<MacWorkspace>(mainQueue);
}

}  // namespace orvel
