#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"
#include "OrvelAgent/Platform/StateStores.h"

namespace orvel {

namespace {

struct FlockedInstance final : InstanceLock {
    FlockedInstance(FileDescriptor locked, std::string lockFolder)
        : file(std::move(locked)), place(std::move(lockFolder)) {}
    std::string folder() const override { return place; }
    const FileDescriptor file;
    const std::string place;
};

// Programs that this one starts must not hold the lock: close on exec.
FileDescriptor openLockFile(const std::string& path) {
    constexpr int flags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | flags, 0600));
    // In a folder that has become read-only, the file of earlier days still serves.
    if (!file && errno != ENOENT) file = FileDescriptor(open(path.c_str(), O_RDONLY | flags));
    return file;
}

bool isFile(const FileDescriptor& file) {
    struct stat opened;
    return file && fstat(file.get(), &opened) == 0 && S_ISREG(opened.st_mode);
}

// False when somebody removed the file: then the next start would lock another one.
bool isStillThere(const FileDescriptor& file, const std::string& path) {
    struct stat opened, named;
    return fstat(file.get(), &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

InstanceLock::Outcome acquireAt(const std::string& folder, std::unique_ptr<InstanceLock>& lock) {
    const std::string path = folder + "/agent.lock";
    for (int attempt = 0; attempt < 10; ++attempt) {
        FileDescriptor file = openLockFile(path);
        if (!isFile(file)) break;
        if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK) return InstanceLock::Outcome::heldByAnother;
            break;
        }
        if (isStillThere(file, path)) {
            lock = std::make_unique<FlockedInstance>(std::move(file), folder);
            return InstanceLock::Outcome::taken;
        }
    }
    return InstanceLock::Outcome::unavailable;
}

}  // namespace

InstanceLock::Outcome InstanceLock::acquire(const StateLocation& location,
                                            std::unique_ptr<InstanceLock>& lock) {
    for (const auto& folder : StatePlaces::of(location).lockFolders) {
        makeFolder(folder);  // if that fails, so does what follows
        const auto outcome = acquireAt(folder, lock);
        if (outcome != Outcome::unavailable) return outcome;
    }
    return Outcome::unavailable;
}

}  // namespace orvel
