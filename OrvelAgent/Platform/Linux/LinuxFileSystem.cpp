#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <string_view>
#include <utility>

#include "OrvelAgent/Platform/FileSystem.h"

namespace orvel {

namespace {

// Endings of folders that come from systems where they are one thing. In lower case.
constexpr std::string_view packageEndings[] = {
    "app",          "appex", "bundle",        "kext",   "mdimporter", "mpkg",
    "musiclibrary", "pkg",   "photoslibrary", "plugin", "prefpane",   "qlgenerator",
    "rtfd",         "saver", "wdgt",          "xpc",
};

bool hasPackageEnding(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return false;
    std::string ending(name.substr(dot + 1));
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return c < 0x80 ? std::tolower(c) : c; });
    return std::find(std::begin(packageEndings), std::end(packageEndings), ending) !=
           std::end(packageEndings);
}

WallTime modificationTime(const struct stat& status) {
    const auto seconds = static_cast<double>(status.st_mtim.tv_sec) -
                         static_cast<double>(referenceDateSinceUnixEpoch.count());
    return fromSecondsSinceReferenceDate(seconds +
                                         static_cast<double>(status.st_mtim.tv_nsec) * 1e-9);
}

// The system's calls would only see what stands before a zero byte.
bool isPath(const std::string& path) {
    return path.find('\0') == std::string::npos;
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) : number(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() {
        if (number >= 0) close(number);
    }
    int number;
};

class LinuxFile final : public FileSystem::File {
public:
    LinuxFile(Descriptor openDescriptor, std::int64_t sizeInBytes)
        : descriptor(std::move(openDescriptor)), bytes(sizeInBytes) {}

    std::int64_t size() const override { return bytes; }

    std::optional<std::size_t> read(std::span<std::uint8_t> into) override {
        std::size_t filled = 0;
        while (filled < into.size()) {
            const auto count =
                ::read(descriptor.number, into.data() + filled, into.size() - filled);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0 && filled == 0) return std::nullopt;
            if (count <= 0) break;  // an error comes again next time
            filled += static_cast<std::size_t>(count);
        }
        return filled;
    }

private:
    const Descriptor descriptor;
    const std::int64_t bytes;
};

class LinuxFileSystem final : public FileSystem {
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
            items.push_back(describe(dirfd(folder.get()), entry->d_name));
        }
    }

    std::variant<std::unique_ptr<File>, Refusal> open(const std::string& path) override {
        struct stat status {};
        if (!isPath(path) || stat(path.c_str(), &status) != 0) return Refusal::missing;
        // Looked at before it is opened, since opening a pipe or a device can have consequences;
        // and again after, since it may have become something else. Then O_NONBLOCK keeps us from
        // waiting for a pipe's other end.
        if (const auto refusal = judge(status)) return *refusal;
        Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (descriptor.number < 0) return errno == ENOENT ? Refusal::missing : Refusal::denied;
        if (fstat(descriptor.number, &status) != 0) return Refusal::denied;
        if (const auto refusal = judge(status)) return *refusal;
        return std::make_unique<LinuxFile>(std::move(descriptor), status.st_size);
    }

private:
    static Item describe(int folder, const char* name) {
        Item item;
        item.name = name;
        struct stat status {};
        if (fstatat(folder, name, &status, 0) != 0) return item;
        item.isDirectory = S_ISDIR(status.st_mode);
        item.isPackage = item.isDirectory && hasPackageEnding(item.name);
        if (S_ISREG(status.st_mode)) item.size = status.st_size;
        item.modified = modificationTime(status);
        return item;
    }

    static std::optional<Refusal> judge(const struct stat& status) {
        if (S_ISREG(status.st_mode)) return std::nullopt;
        return S_ISDIR(status.st_mode) ? Refusal::folder : Refusal::denied;
    }
};

}  // namespace

std::unique_ptr<FileSystem> FileSystem::create() {
    return std::make_unique<LinuxFileSystem>();
}

}  // namespace orvel
