#pragma once

#include <atomic>

#include "OrvelAgent/Platform/Permissions.h"

namespace orvel {

// Grants what the test says, and counts what was asked. Its fields may be touched at any time.
class FakePermissions : public Permissions {
public:
    std::atomic<bool> screenRecordingGranted{true};
    std::atomic<bool> accessibilityGranted{true};
    std::atomic<bool> grantWhenAsked{false};
    std::atomic<bool> hasSettingsPages{true};

    std::atomic<int> screenRecordingRequests{0};
    std::atomic<int> screenRecordingPages{0};
    std::atomic<int> accessibilityPages{0};

    bool screenRecording() override { return screenRecordingGranted; }
    bool accessibility() override { return accessibilityGranted; }
    void requestScreenRecording() override {
        ++screenRecordingRequests;
        if (grantWhenAsked) screenRecordingGranted = true;
    }
    bool openScreenRecordingSettings() override {
        ++screenRecordingPages;
        return hasSettingsPages;
    }
    bool openAccessibilitySettings() override {
        ++accessibilityPages;
        return hasSettingsPages;
    }
};

}  // namespace orvel
