#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "OrvelAgent/Platform/FileSystem.h"
#include "OrvelAgent/Platform/Posix/FileCalls.h"
#include "OrvelAgent/Platform/Posix/Files.h"

namespace orvel {

namespace {

WallTime modified(const struct stat& status) {
    const timespec time = modificationTime(status);
    const auto seconds =
        static_cast<double>(time.tv_sec) - static_cast<double>(referenceDateSinceUnixEpoch.count());
    return fromSecondsSinceReferenceDate(seconds + static_cast<double>(time.tv_nsec) * 1e-9);
}

// The system's calls would only see what stands before a zero byte.
bool isPath(const std::string& path) {
    return path.find('\0') == std::string::npos;
}

class PosixFile final : public FileSystem::File {
public:
    PosixFile(FileDescriptor openDescriptor, std::int64_t sizeInBytes)
        : descriptor(std::move(openDescriptor)), bytes(sizeInBytes) {}

    std::int64_t size() const override { return bytes; }

    std::optional<std::size_t> read(std::span<std::uint8_t> into) override {
        std::size_t filled = 0;
        while (filled < into.size()) {
            const auto count = ::read(descriptor.get(), into.data() + filled, into.size() - filled);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0 && filled == 0) return std::nullopt;
            if (count <= 0) break;  // an error comes again next time
            filled += static_cast<std::size_t>(count);
        }
        return filled;
    }

private:
    const FileDescriptor descriptor;
    const std::int64_t bytes;
};

class PosixFileSystem final : public FileSystem {
public:
    std::optional<std::vector<Item>> list(const std::string& path) override {
        if (!isPath(path)) return std::nullopt;
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
        if (!folder) return std::nullopt;
        std::vector<Item> items;
        for (;;) {
            errno = 0;
            const dirent* entry = readdir(folder.get());
            if (!entry && errno != 0) return std::nullopt;
            if (!entry) return items;
            if (entry->d_name[0] == '.') continue;
            if (auto item = describe(dirfd(folder.get()), path, entry->d_name)) {
                items.push_back(*std::move(item));
            }
        }
    }

    std::variant<std::unique_ptr<File>, Refusal> open(const std::string& path) override {
        struct stat status {};
        if (!isPath(path) || stat(path.c_str(), &status) != 0) return Refusal::missing;
        // Looked at before it is opened, since opening a pipe or a device can have consequences;
        // and again after, since it may have become something else. Then O_NONBLOCK keeps us from
        // waiting for a pipe's other end.
        if (const auto refusal = judge(status)) return *refusal;
        FileDescriptor descriptor(
            ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!descriptor) return errno == ENOENT ? Refusal::missing : Refusal::denied;
        if (fstat(descriptor.get(), &status) != 0) return Refusal::denied;
        if (const auto refusal = judge(status)) return *refusal;
        return std::make_unique<PosixFile>(std::move(descriptor), status.st_size);
    }

private:
    // nullopt: hidden.
    static std::optional<Item> describe(int folder, const std::string& path, const char* name) {
        Item item;
        item.name = name;
        struct stat status {};
        // A link can be hidden itself.
        if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return item;
        if (isHidden(status)) return std::nullopt;
        if (S_ISLNK(status.st_mode) && fstatat(folder, name, &status, 0) != 0) return item;
        item.isDirectory = S_ISDIR(status.st_mode);
        item.isPackage = item.isDirectory && isPackage(path, item.name);
        if (S_ISREG(status.st_mode)) item.size = status.st_size;
        item.modified = modified(status);
        return item;
    }

    static std::optional<Refusal> judge(const struct stat& status) {
        if (S_ISREG(status.st_mode)) return std::nullopt;
        return S_ISDIR(status.st_mode) ? Refusal::folder : Refusal::denied;
    }
};

}  // namespace

std::unique_ptr<FileSystem> FileSystem::create() {
    return std::make_unique<PosixFileSystem>();
}

}  // namespace orvel
