#include "OrvelAgent/Platform/Linux/PackageFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

namespace orvel {

namespace {

int removeFilesIn(int folder) {
    const int own = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (own < 0) return errno;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(own), closedir);
    if (!entries) {
        close(own);
        return ENOMEM;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(entries.get()))
        names.emplace_back(entry->d_name);
    // Folders are nobody's business here, "." and ".." included: they stay.
    for (const auto& name : names)
        unlinkat(folder, name.c_str(), 0);
    return 0;
}

}  // namespace

PackageFolder::PackageFolder(std::string folderPath) : path(std::move(folderPath)) {}

int PackageFolder::prepare() {
    discard();
    if (const int error = makeFolder(path)) return error;
    folder = FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder) return errno;
    struct stat found;
    if (fstat(folder.get(), &found) != 0) return errno;
    if (found.st_uid != geteuid()) return EPERM;
    if ((found.st_mode & 0777) != 0700 && fchmod(folder.get(), 0700) != 0) return errno;
    return removeFilesIn(folder.get());
}

int PackageFolder::begin(const std::string& packageName) {
    discard();
    const std::string part = packageName + ".part";
    unlinkat(folder.get(), part.c_str(), 0);
    file = FileDescriptor(openat(folder.get(), part.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return errno;
    name = packageName;
    return 0;
}

int PackageFolder::write(ByteView piece) {
    while (!piece.empty()) {
        const ssize_t written = ::write(file.get(), piece.data(), piece.size());
        if (written < 0 && errno != EINTR) return errno;
        if (written <= 0) continue;
        piece = piece.subspan(static_cast<std::size_t>(written));
        length += static_cast<std::uint64_t>(written);
    }
    return 0;
}

int PackageFolder::read(Bytes& package) const {
    const FileDescriptor readable(
        openat(folder.get(), fileName().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!readable) return errno;
    struct stat found;
    if (fstat(readable.get(), &found) != 0) return errno;
    if (!S_ISREG(found.st_mode)) return EPERM;
    return readAll(readable.get(), length, package);
}

int PackageFolder::accept() {
    if (fsync(file.get()) != 0) return errno;
    file = FileDescriptor();
    if (renameat(folder.get(), fileName().c_str(), folder.get(), name.c_str()) != 0) return errno;
    accepted = true;
    return syncFolder(folder.get());
}

void PackageFolder::discard() {
    file = FileDescriptor();
    if (!name.empty()) unlinkat(folder.get(), fileName().c_str(), 0);
    name.clear();
    accepted = false;
    length = 0;
}

}  // namespace orvel
