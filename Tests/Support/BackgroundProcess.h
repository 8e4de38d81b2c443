#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// A program that a test starts: the only process that the test may end. It ends with this object,
// and with the thread that made it.
class BackgroundProcess {
public:
    struct Options {
        std::vector<std::string> command;                     // the program is looked up in PATH
        std::map<std::string, std::string> environment = {};  // in addition to ours
        std::string input = {};                               // on its stdin, then its end
        // Both outputs go to this file; nullopt: ours.
        std::optional<std::string> outputFile = std::nullopt;
        // Runs in the child before the program; async-signal-safe calls only. False: exit 127.
        std::function<bool()> prepare = nullptr;
    };

    explicit BackgroundProcess(const Options& options);  // throws std::system_error
    // SIGTERM, after three seconds SIGKILL.
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    pid_t id() const { return child; }
    bool isRunning();
    void signal(int number);
    // Its exit status, or minus the signal that ended it; nullopt: it still runs after `limit`.
    std::optional<int> wait(Duration limit = std::chrono::seconds(20));

private:
    pid_t child;
    std::optional<int> ended;
};

// Looks again and again, for at most `limit`: for what another process or thread brings about.
bool eventually(const std::function<bool()>& condition, Duration limit = std::chrono::seconds(20));

// The whole text of a file; empty when there is none.
std::string fileText(const std::string& path);

}  // namespace orvel
