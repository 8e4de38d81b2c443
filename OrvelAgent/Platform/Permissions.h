#pragma once

#include <memory>

namespace orvel {

// What the system lets this process do. The answers are what holds now, without a prompt; asking
// is cheap enough for every two seconds. Any thread.
class Permissions {
public:
    virtual ~Permissions() = default;
    virtual bool screenRecording() = 0;
    virtual bool accessibility() = 0;  // may post input events and see the focus
    // Asks the user, where the system has such a question; else does nothing.
    virtual void requestScreenRecording() = 0;
    // Opens the page of the system's settings; false where there is none.
    virtual bool openScreenRecordingSettings() = 0;
    virtual bool openAccessibilitySettings() = 0;

    static std::unique_ptr<Permissions> create();
};

}  // namespace orvel
