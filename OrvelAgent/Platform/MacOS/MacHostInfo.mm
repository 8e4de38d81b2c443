// SystemConfiguration's contract: the computer's name is what the user sees in the sharing
// settings; null when there is none. Foundation's: the main bundle's dictionary is empty for a
// program outside a bundle. Both on any thread.
#import <Foundation/Foundation.h>
#include <SystemConfiguration/SystemConfiguration.h>

#include "OrvelAgent/Platform/HostInfo.h"
#include "OrvelAgent/Platform/MacOS/Text.h"

namespace orvel {

namespace {

std::optional<std::string> bundleValue(NSString* key) {
    NSString* const value = [NSBundle.mainBundle objectForInfoDictionaryKey:key];
    if (![value isKindOfClass:NSString.class] || value.length == 0) return std::nullopt;
    return textOf(value);
}

class MacHostInfo final : public HostInfo {
public:
    std::optional<std::string> computerName() override {
        NSString* const name = CFBridgingRelease(SCDynamicStoreCopyComputerName(nullptr, nullptr));
        if (!name) return std::nullopt;
        return textOf(name);
    }
    std::string homeFolder() override { return textOf(NSHomeDirectory()); }
    std::optional<std::string> shortVersion() override {
        return bundleValue(@"CFBundleShortVersionString");
    }
    std::optional<std::string> buildVersion() override {
        return bundleValue((__bridge NSString*)kCFBundleVersionKey);
    }
    std::optional<std::string> bundleIdentifier() override {
        return bundleValue((__bridge NSString*)kCFBundleIdentifierKey);
    }
};

}  // namespace

std::unique_ptr<HostInfo> HostInfo::create() {
    return std::make_unique<MacHostInfo>();
}

}  // namespace orvel
