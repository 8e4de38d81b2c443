#include "OrvelAgent/Platform/Posix/FileSecretStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>

#include "OrvelAgent/Platform/Posix/FileCalls.h"

namespace orvel {

namespace {

// Items begin with this; what is being written begins with a dot and is none.
constexpr const char* itemPrefix = "item-";

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
}

void appendEscaped(std::string& name, const std::string& text) {
    constexpr char hex[] = "0123456789ABCDEF";
    for (const char c : text) {
        if (isPlain(c)) {
            name += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            name += {'%', hex[byte >> 4], hex[byte & 15]};
        }
    }
}

// Different for each service and account, and a harmless file name for every one.
std::string fileName(const std::string& service, const std::string& account) {
    std::string name = itemPrefix;
    appendEscaped(name, service);
    name += '@';
    appendEscaped(name, account);
    return name;
}

std::string freshName() {
    std::random_device random;
    return ".new-" + std::to_string(random()) + '-' + std::to_string(random());
}

// Fails with EEXIST when `to` is there.
int renameWithoutReplacing(int folder, const std::string& from, const std::string& to) {
    if (renameExclusively(folder, from.c_str(), to.c_str()) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return errno;
    // A file system that knows no such renaming.
    if (linkat(folder, from.c_str(), folder, to.c_str(), 0) != 0) return errno;
    unlinkat(folder, from.c_str(), 0);
    return 0;
}

}  // namespace

FileSecretStore::FileSecretStore(std::string folderPath) : folder(std::move(folderPath)) {}

int FileSecretStore::openFolder(FileDescriptor& opened) const {
    opened = FileDescriptor(
        open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return opened ? 0 : errno;
}

bool FileSecretStore::hasItems() const {
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        if (entry->path().filename().string().starts_with(itemPrefix)) return true;
    }
    return false;
}

SecretStore::Item FileSecretStore::read(const std::string& service, const std::string& account) {
    using Status = Item::Status;
    const auto failed = [](int error) {
        return Item{error == ENOENT ? Status::missing : Status::unreadable, {}};
    };
    FileDescriptor opened;
    if (const int error = openFolder(opened)) return failed(error);
    const FileDescriptor file(openat(opened.get(), fileName(service, account).c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) return failed(errno);
    struct stat found;
    if (fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return {Status::unreadable, {}};
    Bytes data;
    if (readAll(file.get(), maxSize, data) != 0) return {Status::unreadable, {}};
    return {Status::found, std::move(data)};
}

int FileSecretStore::store(const std::string& name, ByteView data, bool mayReplace) const {
    if (data.size() > maxSize) return EFBIG;
    if (const int error = makeFolder(folder)) return error;
    FileDescriptor opened;
    if (const int error = openFolder(opened)) return error;
    struct stat found;
    if (fstat(opened.get(), &found) == 0 && (found.st_mode & 077) != 0) {
        fchmod(opened.get(), 0700);
    }
    if (mayReplace) return replaceFile(opened.get(), name, data);
    // The name appears only when the content is on the disk: half a secret would stay for ever.
    const std::string fresh = freshName();
    if (const int error = createFile(opened.get(), fresh, data)) return error;
    if (const int error = renameWithoutReplacing(opened.get(), fresh, name)) {
        unlinkat(opened.get(), fresh.c_str(), 0);
        return error;
    }
    return syncFolder(opened.get());
}

bool FileSecretStore::reported(int error) {
    if (error == 0) return true;
    if (error != EEXIST) {
        std::fprintf(stderr, "orvel: a secret cannot be stored: %s\n",
                     describeError(error).c_str());
    }
    return false;
}

bool FileSecretStore::add(const std::string& service, const std::string& account, ByteView data) {
    return reported(store(fileName(service, account), data, false));
}

bool FileSecretStore::replace(const std::string& service, const std::string& account,
                              ByteView data) {
    return reported(store(fileName(service, account), data, true));
}

bool FileSecretStore::remove(const std::string& service, const std::string& account) {
    FileDescriptor opened;
    if (openFolder(opened) != 0) return false;
    if (unlinkat(opened.get(), fileName(service, account).c_str(), 0) != 0) return false;
    return syncFolder(opened.get()) == 0;
}

}  // namespace orvel
