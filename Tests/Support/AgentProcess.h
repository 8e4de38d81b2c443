#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

// A program whose lines a test reads and writes. Waits are bounded.
class LineProcess {
public:
    static constexpr std::chrono::seconds patience{20};

    explicit LineProcess(const std::vector<std::string>& command,
                         const std::map<std::string, std::string>& environment = {});
    ~LineProcess();
    LineProcess(const LineProcess&) = delete;
    LineProcess& operator=(const LineProcess&) = delete;

    // The next line of standard output; nullopt at its end or when none comes in time.
    std::optional<std::string> readLine(std::chrono::milliseconds limit = patience);
    // Reads lines until one contains `text`; returns it, or nullopt.
    std::optional<std::string> readUntil(const std::string& text);
    void writeLine(const std::string& line);
    void closeInput();
    void signal(int number) { child->signal(number); }
    std::optional<int> wait() { return child->wait(patience); }  // see BackgroundProcess::wait()
    // What it wrote to standard error so far.
    std::string errors() const { return fileText(scratch / "stderr"); }
    long residentKilobytes() const;

private:
    TemporaryFolder scratch;
    int input = -1, output = -1;
    std::string pending;
    std::optional<BackgroundProcess> child;
};

// orvel-agent on a state folder of its own, on loopback and unannounced; `display` may be empty. It
// finds no session bus and no sound server but those that `environment` names.
class AgentProcess : public LineProcess {
public:
    AgentProcess(const std::string& stateFolder, const std::string& display,
                 const std::vector<std::string>& more = {},
                 std::map<std::string, std::string> environment = {});
    // The port of its `listening` line, after reading up to `waiting`; 0 when they do not come.
    std::uint16_t waitListening();
    // The text of the member `name` in a line, up to the next quote: enough for IDs and codes.
    static std::string valueOf(const std::string& line, const std::string& name);
};

}  // namespace orvel
