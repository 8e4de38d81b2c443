// The contract of Core Graphics and Accessibility: the two questions answer at once, without a
// prompt, on any thread; asking for screen recording prompts once in the life of an installation
// and then only says no. What is granted for screen recording counts from the program's next start.
// A program is on the settings' page for accessibility only when it has asked with a prompt.
#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

#include "OrvelAgent/Platform/Permissions.h"

namespace orvel {

namespace {

bool openSettings(NSString* page) {
    NSURL* const address = [NSURL URLWithString:page];
    return address && [NSWorkspace.sharedWorkspace openURL:address];
}

class MacPermissions final : public Permissions {
public:
    bool screenRecording() override { return CGPreflightScreenCaptureAccess(); }
    bool accessibility() override { return AXIsProcessTrusted(); }

    void requestScreenRecording() override { CGRequestScreenCaptureAccess(); }

    bool openScreenRecordingSettings() override {
        return openSettings(
            @"x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture");
    }
    bool openAccessibilitySettings() override {
        AXIsProcessTrustedWithOptions(
            (__bridge CFDictionaryRef)
                @{(__bridge NSString*)kAXTrustedCheckOptionPrompt : @YES});
        return openSettings(
            @"x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility");
    }
};

}  // namespace

std::unique_ptr<Permissions> Permissions::create() {
    return std::make_unique<MacPermissions>();
}

}  // namespace orvel
