#include "Tests/Support/BackgroundProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>

namespace orvel {

namespace {

constexpr auto pause = std::chrono::milliseconds(5);
constexpr auto politeLimit = std::chrono::seconds(3);

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int openInput(const std::string& input) {
    if (input.empty()) return open("/dev/null", O_RDONLY | O_CLOEXEC);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) fail("pipe");
    // Small enough for the pipe to take it before anybody reads.
    if (write(ends[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        fail("input");
    }
    close(ends[1]);
    return ends[0];
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& added) {
    std::vector<std::string> texts;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        if (!added.contains(text.substr(0, text.find('=')))) texts.push_back(text);
    }
    for (const auto& [name, value] : added)
        texts.push_back(name + '=' + value);
    return texts;
}

}  // namespace

BackgroundProcess::BackgroundProcess(const Options& options) {
    auto command = options.command;
    auto environment = environmentWith(options.environment);
    const auto arguments = pointersTo(command);
    const auto variables = pointersTo(environment);
    const int input = openInput(options.input);
    int output = -1;
    if (options.outputFile) {
        output = open(options.outputFile->c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (output < 0) fail("output");
    }
    const pid_t parent = getpid();
    child = fork();
    if (child < 0) fail("fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        dup2(input, STDIN_FILENO);
        if (output >= 0) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
        }
        if (options.prepare && !options.prepare()) _exit(127);
        execvpe(arguments[0], arguments.data(), variables.data());
        _exit(127);
    }
    close(input);
    if (output >= 0) close(output);
}

BackgroundProcess::~BackgroundProcess() {
    signal(SIGTERM);
    if (wait(politeLimit)) return;
    signal(SIGKILL);
    wait();
}

bool BackgroundProcess::isRunning() {
    return !wait(Duration::zero());
}

void BackgroundProcess::signal(int number) {
    // Once waited for, the number may be another process's.
    if (isRunning()) kill(child, number);
}

std::optional<int> BackgroundProcess::wait(Duration limit) {
    eventually(
        [&] {
            int status = 0;
            if (!ended && waitpid(child, &status, WNOHANG) == child) {
                ended = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
            }
            return ended.has_value();
        },
        limit);
    return ended;
}

bool eventually(const std::function<bool()>& condition, Duration limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

std::string fileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace orvel
