#include "OrvelAgent/Platform/Linux/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cerrno>
#include <utility>

#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

namespace {

constexpr std::size_t maxOutput = 4096;

// -1: it could not be started. `output`: where its standard output goes, and its errors nowhere;
// -1: both are ours.
pid_t spawn(const std::vector<std::string>& command, int output) {
    std::vector<char*> arguments;
    for (const auto& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (output >= 0) {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    // The program ignores some signals; a child would inherit that.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    pid_t child = -1;
    const int error =
        posix_spawnp(&child, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? child : -1;
}

std::optional<int> collect(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return std::nullopt;
    }
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

int pidDescriptor(pid_t process) {
    return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

}  // namespace

void ChildProcess::start(SerialQueue& queue, const std::vector<std::string>& command,
                         Completion completion) {
    using Watch = boost::asio::posix::stream_descriptor;
    // Such a descriptor becomes readable when its process ends (Linux 5.3). Without one for
    // ourselves there will be none for the child, which then had better not start.
    const bool watchable = FileDescriptor(pidDescriptor(getpid())).get() >= 0;
    const pid_t child = watchable ? spawn(command, -1) : -1;
    const int handle = child < 0 ? -1 : pidDescriptor(child);
    if (handle < 0) {
        queue.post([completion = std::move(completion)] { completion(std::nullopt); });
        return;
    }
    const auto watch = std::make_shared<Watch>(ioContext(queue), handle);
    watch->async_wait(Watch::wait_read, [watch, child, completion = std::move(completion)](
                                            boost::system::error_code error) {
        if (!error) completion(collect(child));
    });
}

std::optional<std::string> ChildProcess::output(const std::vector<std::string>& command,
                                                Duration limit) {
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t child = spawn(command, writing.get());
    writing = FileDescriptor();
    if (child < 0) return std::nullopt;

    std::string text;
    const auto end = std::chrono::steady_clock::now() + limit;
    bool whole = false;
    while (!whole && text.size() <= maxOutput) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd readable{reading.get(), POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) == 0) break;
        std::array<char, 1024> piece;
        const ssize_t got = ::read(reading.get(), piece.data(), piece.size());
        if (got > 0) text.append(piece.data(), static_cast<std::size_t>(got));
        if (got == 0) whole = true;
        if (got < 0 && errno != EINTR) break;
    }
    if (!whole) kill(child, SIGKILL);
    const auto status = collect(child);
    return whole && status == 0 ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace orvel
