#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <string>

namespace orvel {

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline unsigned modeOf(const std::string& path) {
    struct stat found;
    return lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

// Starts `work` in a process of its own, which ends with 0 when it returns true.
inline pid_t forked(const std::function<bool()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    return child;
}

inline bool succeeds(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Whether `work` returns true in a process that permissions apply to, root or not.
inline bool succeedsWithoutPrivileges(const std::function<bool()>& work) {
    constexpr uid_t nobody = 65534;
    return succeeds(forked([&] {
        if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) return false;
        return work();
    }));
}

// The same in a process whose files cannot grow beyond `bytes`, as if the disk were full there.
inline bool succeedsOnDiskOf(rlim_t bytes, const std::function<bool()>& work) {
    return succeeds(forked([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, bytes};
        return setrlimit(RLIMIT_FSIZE, &limit) == 0 && work();
    }));
}

}  // namespace orvel
