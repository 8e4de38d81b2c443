#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "OrvelAgent/Platform/Permissions.h"

namespace orvel {

class X11Connection;

// What the X server really grants: pixels of its root window to whoever may follow the picture,
// input to whoever may speak XTEST. Asked once for each connection, which is kept; while no server
// answers, nothing is granted, and each question looks for one, which is quick on the same machine.
class X11Permissions : public Permissions {
public:
    // `display` as in $DISPLAY; empty stands for what that says.
    explicit X11Permissions(std::string display = {});
    ~X11Permissions() override;

    bool screenRecording() override;
    bool accessibility() override;
    void requestScreenRecording() override {}  // X asks nobody
    bool openScreenRecordingSettings() override { return false; }
    bool openAccessibilitySettings() override { return false; }

private:
    struct Granted {
        bool screenRecording = false;
        bool accessibility = false;
    };
    Granted ask();

    const std::string display;
    std::mutex mutex;  // guards the following
    std::unique_ptr<X11Connection> x11;
    Granted granted;  // by that connection's server
};

}  // namespace orvel
