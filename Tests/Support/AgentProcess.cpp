#include "Tests/Support/AgentProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace orvel {

using Clock = std::chrono::steady_clock;

LineProcess::LineProcess(const std::vector<std::string>& command,
                         const std::map<std::string, std::string>& environment) {
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    ::signal(SIGPIPE, SIG_IGN);
    child.emplace(BackgroundProcess::Options{.command = command,
                                             .environment = environment,
                                             .outputFile = scratch / "stderr",
                                             .prepare = [in = toChild[0], out = fromChild[1]] {
                                                 return dup2(in, STDIN_FILENO) >= 0 &&
                                                        dup2(out, STDOUT_FILENO) >= 0;
                                             }});
    close(toChild[0]);
    close(fromChild[1]);
    input = toChild[1];
    output = fromChild[0];
}

LineProcess::~LineProcess() {
    child.reset();
    closeInput();
    close(output);
}

std::optional<std::string> LineProcess::readLine(std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (true) {
        if (const auto end = pending.find('\n'); end != std::string::npos) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            return line;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd waiting{output, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
            return std::nullopt;
        }
        char chunk[4096];
        const ssize_t count = read(output, chunk, sizeof chunk);
        if (count <= 0) return std::nullopt;
        pending.append(chunk, static_cast<std::size_t>(count));
    }
}

std::optional<std::string> LineProcess::readUntil(const std::string& text) {
    const auto deadline = Clock::now() + patience;
    while (Clock::now() < deadline) {
        auto line = readLine();
        if (!line) return std::nullopt;
        if (line->find(text) != std::string::npos) return line;
    }
    return std::nullopt;
}

void LineProcess::writeLine(const std::string& line) {
    const std::string text = line + "\n";
    if (write(input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the program does not read its input");
    }
}

void LineProcess::closeInput() {
    if (input >= 0) close(input);
    input = -1;
}

long LineProcess::residentKilobytes() const {
    std::ifstream file("/proc/" + std::to_string(child->id()) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("VmRSS:")) return std::atol(line.c_str() + 6);
    }
    return 0;
}

namespace {

std::vector<std::string> agentCommand(const std::string& stateFolder,
                                      const std::vector<std::string>& more) {
    std::vector<std::string> command{ORVEL_AGENT_PROGRAM, "--headless", "--state-dir",
                                     stateFolder,         "--bind",     "127.0.0.1",
                                     "--no-advertise"};
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

std::map<std::string, std::string> isolated(std::map<std::string, std::string> environment,
                                            const std::string& display) {
    environment.insert({{"DISPLAY", display},
                        {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"},
                        {"PULSE_SERVER", "unix:/nonexistent"}});
    return environment;
}

}  // namespace

AgentProcess::AgentProcess(const std::string& stateFolder, const std::string& display,
                           const std::vector<std::string>& more,
                           std::map<std::string, std::string> environment)
    : LineProcess(agentCommand(stateFolder, more), isolated(std::move(environment), display)) {}

std::uint16_t AgentProcess::waitListening() {
    const auto listening = readUntil("\"listening\"");
    if (!listening || !readUntil("\"waiting\"")) return 0;
    return static_cast<std::uint16_t>(std::atoi(listening->c_str() + listening->rfind(':') + 1));
}

std::string AgentProcess::valueOf(const std::string& line, const std::string& name) {
    const std::string start = "\"" + name + "\":\"";
    const auto found = line.find(start);
    if (found == std::string::npos) return {};
    const auto begin = found + start.size();
    return line.substr(begin, line.find('"', begin) - begin);
}

}  // namespace orvel
