// IOKit's contract: assertions are held by powerd for this process until they are released or it
// ends; making one is a short exchange with it, safe on any thread. A declaration of user activity
// hands back an assertion of its own kind; given again, it is renewed instead of doubled. A program
// without windows in front is napped, with late timers and slow sockets, unless it is known to do
// what its user wants; that lasts until the token of the activity is given back.
#import <Foundation/Foundation.h>
#include <IOKit/pwr_mgt/IOPMLib.h>

#include <mutex>

#include "OrvelAgent/Platform/MacOS/CFOwner.h"
#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/Power.h"

namespace orvel {

namespace {

static_assert(kIOPMAssertionLevelOn == 255);
static_assert(kIOPMNullAssertionID == 0);

CFOwner<CFStringRef> cfString(const std::string& text) {
    return CFOwner<CFStringRef>(static_cast<CFStringRef>(CFBridgingRetain(nsString(text))));
}

class MacPower final : public Power {
public:
    ~MacPower() override { [NSProcessInfo.processInfo endActivity:serving]; }

    std::uint32_t preventIdleSleep(const std::string& reason) override {
        IOPMAssertionID assertion = kIOPMNullAssertionID;
        const IOReturn status =
            IOPMAssertionCreateWithName(kIOPMAssertPreventUserIdleSystemSleep,
                                        kIOPMAssertionLevelOn, cfString(reason).get(), &assertion);
        return status == kIOReturnSuccess ? assertion : kIOPMNullAssertionID;
    }

    void release(std::uint32_t assertion) override { IOPMAssertionRelease(assertion); }

    void declareUserActivity(const std::string& reason) override {
        const std::lock_guard hold(mutex);
        IOPMAssertionDeclareUserActivity(cfString(reason).get(), kIOPMUserActiveLocal, &activity);
    }

private:
    // The computer may sleep nevertheless.
    const id<NSObject> serving = [NSProcessInfo.processInfo
        beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                          reason:@"Orvel: telefonlar bu Mac'e ulaşabilsin"];
    std::mutex mutex;  // guards the field below
    IOPMAssertionID activity = kIOPMNullAssertionID;
};

}  // namespace

std::unique_ptr<Power> Power::create() {
    return std::make_unique<MacPower>();
}

}  // namespace orvel
