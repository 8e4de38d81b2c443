#include "OrvelAgent/Platform/Posix/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "OrvelAgent/Platform/Posix/FileCalls.h"

namespace orvel {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (descriptor >= 0) close(descriptor);
}

std::string describeError(int error) {
    return std::generic_category().message(error);
}

int makeFolder(const std::string& path) {
    struct stat found;
    if (stat(path.c_str(), &found) == 0) return S_ISDIR(found.st_mode) ? 0 : ENOTDIR;
    if (errno != ENOENT) return errno;
    const std::string parent = std::filesystem::path(path).parent_path();
    if (parent.empty() || parent == path) return ENOENT;
    if (const int error = makeFolder(parent)) return error;
    if (mkdir(path.c_str(), 0700) != 0) return errno == EEXIST ? makeFolder(path) : errno;
    const FileDescriptor folder(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) syncFolder(folder.get());
    return 0;
}

int readAll(int descriptor, std::size_t limit, Bytes& data) {
    data.clear();
    while (data.size() <= limit) {
        const std::size_t had = data.size();
        data.resize(std::min(limit + 1, std::max<std::size_t>(4096, had * 2)));
        const ssize_t got = read(descriptor, data.data() + had, data.size() - had);
        const int error = errno;
        data.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got == 0) return 0;
        if (got < 0 && error != EINTR) return error;
    }
    return EFBIG;
}

int createFile(int folder, const std::string& name, ByteView data) {
    const FileDescriptor file(
        openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return errno;
    int error = 0;
    while (!data.empty() && error == 0) {
        const ssize_t written = write(file.get(), data.data(), data.size());
        if (written >= 0) {
            data = data.subspan(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    if (error == 0 && flushToDisk(file.get()) != 0) error = errno;
    if (error != 0) unlinkat(folder, name.c_str(), 0);
    return error;
}

int replaceFile(int folder, const std::string& name, ByteView data) {
    const std::string fresh = '.' + name + ".new";
    unlinkat(folder, fresh.c_str(), 0);  // of a writer that was killed
    if (const int error = createFile(folder, fresh, data)) return error;
    if (renameat(folder, fresh.c_str(), folder, name.c_str()) != 0) {
        const int error = errno;
        unlinkat(folder, fresh.c_str(), 0);
        return error;
    }
    return syncFolder(folder);
}

int syncFolder(int folder) {
    if (flushToDisk(folder) == 0) return 0;
    // Some file systems cannot do this with a folder, and need not.
    return errno == EINVAL || errno == ENOTSUP ? 0 : errno;
}

int FileLock::acquire(const std::string& path, Duration limit) {
    constexpr auto longestPause = std::chrono::milliseconds(50);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    auto pause = std::chrono::milliseconds(1);
    file = FileDescriptor(
        open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (!file) return errno;
    while (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) return 0;
        if (std::chrono::steady_clock::now() >= deadline) return ETIMEDOUT;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
    }
    return 0;
}

}  // namespace orvel
