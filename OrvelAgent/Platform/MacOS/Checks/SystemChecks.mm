// The contract of what is asked here: nothing of it prompts. Core Graphics and Accessibility tell
// at once what this process may do; mDNSResponder's version is an exchange with it; a keychain
// query that asks for no value needs no consent; the firewall's own program tells its state to
// everybody.
#include "OrvelAgent/Platform/SystemChecks.h"

#include <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>
#import <Security/Security.h>
#import <ServiceManagement/ServiceManagement.h>
#include <dns_sd.h>
#include <sys/mount.h>

#include <string_view>

#include "OrvelAgent/Platform/MacOS/CFOwner.h"
#include "OrvelAgent/Platform/MacOS/Checks/MacFindings.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

namespace {

static_assert(SMAppServiceStatusNotRegistered == 0 && SMAppServiceStatusEnabled == 1);
static_assert(SMAppServiceStatusRequiresApproval == 2 && SMAppServiceStatusNotFound == 3);

MacDisplayFacts lookAtDisplays() {
    std::uint32_t count = 0;
    const bool isKnown = CGGetActiveDisplayList(0, nullptr, &count) == kCGErrorSuccess;
    return {isKnown ? count : 0, CGPreflightScreenCaptureAccess(),
            static_cast<bool>(AXIsProcessTrusted())};
}

bool discoveryAnswers() {
    std::uint32_t version = 0, size = sizeof version;
    return DNSServiceGetProperty(kDNSServiceProperty_DaemonVersion, &version, &size) ==
           kDNSServiceErr_NoError;
}

std::optional<MacFirewall> lookAtFirewall() {
    NSTask* const program = [[NSTask alloc] init];
    NSPipe* const output = [NSPipe pipe];
    program.executableURL =
        [NSURL fileURLWithPath:@"/usr/libexec/ApplicationFirewall/socketfilterfw"];
    program.arguments = @[ @"--getglobalstate" ];
    program.standardOutput = output;
    program.standardError = NSFileHandle.fileHandleWithNullDevice;
    program.standardInput = NSFileHandle.fileHandleWithNullDevice;
    if (![program launchAndReturnError:nil]) return std::nullopt;
    NSData* const text = [output.fileHandleForReading readDataToEndOfFileAndReturnError:nil];
    [program waitUntilExit];
    return firewallFromText({static_cast<const char*>(text.bytes), text.length});
}

bool hasIdentity() {
    NSDictionary* const query = @{
        (__bridge id)kSecClass : (__bridge id)kSecClassGenericPassword,
        (__bridge id)kSecAttrService : @"com.halverton.orvel.agent",
        (__bridge id)kSecAttrAccount : @"identity",
    };
    return SecItemCopyMatching((__bridge CFDictionaryRef)query, nullptr) != errSecItemNotFound;
}

MacStateFacts lookAtState(const StateLocation& location) {
    MacStateFacts facts;
    if (!location.folder) facts.hasIdentity = hasIdentity();
    struct statfs volume;
    const std::string place = location.folder.value_or(homeFolderOfUser());
    if (statfs(place.c_str(), &volume) == 0) {
        facts.freeBytes = std::uint64_t{volume.f_bavail} * volume.f_bsize;
    }
    return facts;
}

MacBundleFacts lookAtBundle() {
    MacBundleFacts facts;
    facts.isBundle = NSBundle.mainBundle.bundleIdentifier != nil;
    CFOwner<SecCodeRef> running;
    CFOwner<SecStaticCodeRef> code;
    CFOwner<CFDictionaryRef> information;
    if (SecCodeCopySelf(kSecCSDefaultFlags, running.receive()) == errSecSuccess &&
        SecCodeCopyStaticCode(running.get(), kSecCSDefaultFlags, code.receive()) == errSecSuccess &&
        SecCodeCopySigningInformation(code.get(), kSecCSSigningInformation,
                                      information.receive()) == errSecSuccess) {
        NSArray* const certificates =
            ((__bridge NSDictionary*)information.get())[(__bridge id)kSecCodeInfoCertificates];
        facts.hasCertificate = certificates.count > 0;
    }
    return facts;
}

MacLogin lookAtLogin() {
    switch (SMAppService.mainAppService.status) {
        case SMAppServiceStatusEnabled:
            return MacLogin::enabled;
        case SMAppServiceStatusRequiresApproval:
            return MacLogin::withdrawn;
        case SMAppServiceStatusNotRegistered:
        case SMAppServiceStatusNotFound:
            break;
    }
    return MacLogin::off;
}

// On a thread that is not Foundation's.
Check of(const char* subject, std::function<Check::Findings()> findings) {
    return Check::of(subject, [findings = std::move(findings)] {
        @autoreleasepool {
            return findings();
        }
    });
}

}  // namespace

std::vector<Check> systemChecks(const Examined& examined) {
    return {
        of("display", [=] { return displayFindings(lookAtDisplays(), examined); }),
        of("network name", [=] { return announcementFindings(discoveryAnswers(), examined); }),
        of("firewall", [] { return firewallFindings(lookAtFirewall()); }),
        of("state", [=] { return stateFindings(lookAtState(examined.state), examined); }),
        of("program", [] { return bundleFindings(lookAtBundle()); }),
        of("start", [=] { return startFindings(lookAtLogin(), examined); }),
    };
}

}  // namespace orvel
