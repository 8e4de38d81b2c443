#pragma once

#include <map>
#include <memory>
#include <string>

#include "Tests/Support/PrivateBus.h"
#include "Tests/Support/XServer.h"

namespace orvel {

// A desktop session with a window manager and the real accessibility service, of the test's own.
class AccessibleDesktop {
public:
    AccessibleDesktop();  // throws std::runtime_error
    ~AccessibleDesktop();

    const PrivateBus& bus() const { return session; }
    const std::string& display() const { return server.display(); }
    // For programs that shall appear on it.
    std::map<std::string, std::string> environment() const;

    void startAccessibility();  // done at the beginning
    void stopAccessibility();
    // Its switch, which applications ask.
    bool isAccessibilityOn() const;
    void switchAccessibility(bool isOn);
    // How many applications describe themselves, and what is listened to, as dbus-send prints it.
    int applications() const;
    std::string listeners() const;
    // Sends a signal from somebody who is gone at once, to everybody on the accessibility bus.
    // `arguments` as dbus-send takes them.
    void signal(const std::string& path, const std::string& name,
                const std::vector<std::string>& arguments) const;

private:
    // Its output; empty when it fails.
    std::string send(std::vector<std::string> arguments) const;

    XServer server{XServer::Options{.width = 800, .height = 600}};
    PrivateBus session;
    TemporaryFolder home;
    std::unique_ptr<BackgroundProcess> windowManager, accessibility;
};

}  // namespace orvel
