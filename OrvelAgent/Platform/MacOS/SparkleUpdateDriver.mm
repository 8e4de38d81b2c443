// Sparkle 2's contract: the standard controller belongs to the main thread, takes feed and key from
// the bundle's Info.plist, and shows everything by windows of its own. Its delegates are held
// weakly and called on the main thread. A delegate that supports gentle reminders is asked whether
// Sparkle shall show an update that it found by itself, and is told what becomes of each update;
// checkForUpdates brings up what was held back. canCheckForUpdates can be observed by key-value.
#import <Sparkle/Sparkle.h>

#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/UpdateDriver.h"

namespace orvel {
namespace {

// What the delegate calls while the driver lives.
struct UpdateReceiver {
    SerialQueue& mainQueue;
    UpdateDriver::Callbacks callbacks;
};

// Never from inside a call of the driver's.
template <class Call>
void tell(const std::weak_ptr<UpdateReceiver>& weak, Call call) {
    const auto receiver = weak.lock();
    if (!receiver) return;
    receiver->mainQueue.post([weak, call] {
        if (const auto live = weak.lock()) call(live->callbacks);
    });
}

AvailableUpdate describe(SUAppcastItem* item) {
    return {textOf(item.versionString), textOf(item.displayVersionString),
            textOf(item.itemDescription), item.contentLength};
}

}  // namespace
}  // namespace orvel

@interface OrvelUpdateDelegate : NSObject <SPUStandardUserDriverDelegate>
- (instancetype)initWithReceiver:(std::weak_ptr<orvel::UpdateReceiver>)receiver;
@end

@implementation OrvelUpdateDelegate {
    std::weak_ptr<orvel::UpdateReceiver> receiver;
}

- (instancetype)initWithReceiver:(std::weak_ptr<orvel::UpdateReceiver>)given {
    if ((self = [super init])) receiver = std::move(given);
    return self;
}

- (BOOL)supportsGentleScheduledUpdateReminders {
    return YES;
}

// Only right after the start, when nobody is interrupted.
- (BOOL)standardUserDriverShouldHandleShowingScheduledUpdate:(SUAppcastItem*)__unused update
                                         andInImmediateFocus:(BOOL)immediateFocus {
    return immediateFocus;
}

- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state {
    const auto found = orvel::describe(update);
    const bool byItself = handleShowingUpdate, wanted = state.userInitiated;
    orvel::tell(receiver, [=](const auto& callbacks) {
        callbacks.willHandleShowingUpdate(found, byItself, wanted);
    });
}

- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update {
    const auto seen = orvel::describe(update);
    orvel::tell(receiver, [=](const auto& callbacks) { callbacks.didReceiveUserAttention(seen); });
}

- (void)standardUserDriverWillFinishUpdateSession {
    orvel::tell(receiver, [](const auto& callbacks) { callbacks.willFinishUpdateSession(); });
}

- (void)observeValueForKeyPath:(NSString*)__unused keyPath
                      ofObject:(id)__unused object
                        change:(NSDictionary<NSKeyValueChangeKey, id>*)__unused change
                       context:(void*)__unused context {
    orvel::tell(receiver, [](const auto& callbacks) { callbacks.onCanCheck(); });
}

@end

namespace orvel {
namespace {

NSString* const canCheckKey = @"canCheckForUpdates";

class SparkleUpdateDriver final : public UpdateDriver {
public:
    // `isApart`: the framework's settings are the user's own agent's.
    SparkleUpdateDriver(SerialQueue& main, bool isApart) : mainQueue(main), looks(!isApart) {}

    ~SparkleUpdateDriver() override {
        if (delegate) [controller.updater removeObserver:delegate forKeyPath:canCheckKey];
    }

    void start(Callbacks callbacks) override {
        mainQueue.assertCurrent();
        receiver =
            std::make_shared<UpdateReceiver>(UpdateReceiver{mainQueue, std::move(callbacks)});
        delegate = [[OrvelUpdateDelegate alloc] initWithReceiver:receiver];
        controller = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:NO
                                                                   updaterDelegate:nil
                                                                userDriverDelegate:delegate];
        [controller.updater addObserver:delegate
                             forKeyPath:canCheckKey
                                options:NSKeyValueObservingOptionNew
                                context:nil];
        if (canLook()) [controller startUpdater];
    }

    bool hasInterface() const override { return true; }
    bool canCheck() const override { return canLook() && controller.updater.canCheckForUpdates; }
    bool automaticallyChecks() const override {
        return looks && controller.updater.automaticallyChecksForUpdates;
    }
    void setAutomaticallyChecks(bool checks) override {
        if (looks) controller.updater.automaticallyChecksForUpdates = checks;
    }
    void checkForUpdates() override { [controller checkForUpdates:nil]; }
    void install() override { checkForUpdates(); }
    void skip() override {}
    void dismiss() override {}

private:
    // A build without feed or key has nothing to look at.
    bool canLook() const {
        NSDictionary* const info = NSBundle.mainBundle.infoDictionary;
        return looks && [info[@"SUFeedURL"] length] > 0 && [info[@"SUPublicEDKey"] length] > 0;
    }

    SerialQueue& mainQueue;
    const bool looks;
    std::shared_ptr<UpdateReceiver> receiver;
    OrvelUpdateDelegate* delegate = nil;
    SPUStandardUpdaterController* controller = nil;
};

}  // namespace

std::unique_ptr<UpdateDriver> UpdateDriver::create(SerialQueue& mainQueue, Defaults&, HostInfo&,
                                                   const StateLocation& location) {
    return std::make_unique<SparkleUpdateDriver>(mainQueue, location.folder.has_value());
}

}  // namespace orvel
