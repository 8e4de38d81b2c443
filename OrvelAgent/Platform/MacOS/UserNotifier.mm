// UserNotifications' contract: there is a notification centre only for a program in a bundle
// (asking for it outside of one raises an exception). Its methods are safe on any thread and answer
// on one of their own. The question for permission is put once; later calls answer what was said
// then. A request with no trigger is shown at once, and replaces the one before with its
// identifier. While the program is in front its delegate says whether to show it; an agent without
// windows mostly is not, and is to be heard when it is.
#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/Notifier.h"

@interface OrvelNotificationPresenter : NSObject <UNUserNotificationCenterDelegate>
@end

@implementation OrvelNotificationPresenter

- (void)userNotificationCenter:(UNUserNotificationCenter*)__unused center
       willPresentNotification:(UNNotification*)__unused notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions))completion {
    completion(UNNotificationPresentationOptionBanner | UNNotificationPresentationOptionSound);
}

@end

namespace orvel {

namespace {

class UserNotifier final : public Notifier {
public:
    // The centre holds its delegate weakly.
    explicit UserNotifier(UNUserNotificationCenter* used) : center(used) {
        center.delegate = presenter;
    }
    ~UserNotifier() override { center.delegate = nil; }

    void requestPermission() override {
        [center
            requestAuthorizationWithOptions:UNAuthorizationOptionAlert | UNAuthorizationOptionSound
                          completionHandler:^(BOOL __unused granted, NSError* __unused error){
                          }];
    }

    void post(Notification notification) override {
        UNMutableNotificationContent* const content = [[UNMutableNotificationContent alloc] init];
        content.title = nsString(notification.title);
        content.body = nsString(notification.body);
        content.sound = UNNotificationSound.defaultSound;
        [center addNotificationRequest:[UNNotificationRequest
                                           requestWithIdentifier:nsString(notification.identifier)
                                                         content:content
                                                         trigger:nil]
                 withCompletionHandler:nil];
    }

private:
    UNUserNotificationCenter* const center;  // nil outside a bundle: then all of this is nothing
    OrvelNotificationPresenter* const presenter = [[OrvelNotificationPresenter alloc] init];
};

}  // namespace

std::unique_ptr<Notifier> Notifier::create() {
    const bool hasBundle = NSBundle.mainBundle.bundleIdentifier != nil;
    return std::make_unique<UserNotifier>(
        hasBundle ? UNUserNotificationCenter.currentNotificationCenter : nil);
}

}  // namespace orvel
