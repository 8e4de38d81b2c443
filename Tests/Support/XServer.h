#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Tests/Support/BackgroundProcess.h"

namespace orvel {

// An X server of the test's own, without a device (Xvfb), which nobody else knows. Its state stays
// when clients come and go.
class XServer {
public:
    struct Options {
        int width = 640, height = 480;            // pixels; it cannot grow beyond them
        std::vector<std::string> arguments = {};  // more, such as {"-extension", "DAMAGE"}
    };

    XServer();
    explicit XServer(const Options& options);  // throws std::runtime_error

    const std::string& display() const { return name; }  // as in $DISPLAY
    pid_t id() const { return process->id(); }
    // Ends at once, as after a crash.
    void kill();
    // A new one with the same name, after kill().
    void restart();

private:
    void start(const std::vector<std::string>& command);

    const Options chosen;
    std::string name;
    std::unique_ptr<BackgroundProcess> process;
};

}  // namespace orvel
