#include "Phone/PrivateFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace orvel::phone {

namespace {

std::string said(int error) {
    return std::strerror(error);
}

class Descriptor {
public:
    explicit Descriptor(int opened) : value(opened) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int operator*() const { return value; }
    bool isOpen() const { return value >= 0; }
    int close() { return isOpen() ? ::close(std::exchange(value, -1)) : 0; }

private:
    int value;
};

std::string writeAll(int descriptor, ByteView content) {
    while (!content.empty()) {
        const ssize_t written = ::write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return said(errno);
        content = content.subspan(static_cast<std::size_t>(written));
    }
    return {};
}

std::string folderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

// The rename or link itself is durable once the folder is. Where a folder cannot be synchronised,
// the system's own order has to do.
void synchronizeFolder(const std::string& folder) {
    const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.isOpen()) ::fsync(*opened);
}

// A complete file under a name of its own in the folder of `path`; `name` is empty on failure.
struct Draft {
    std::string name, problem;
};

Draft writeDraft(const std::string& path, ByteView content, FileAccess access) {
    static std::atomic<unsigned> drafts = 0;
    const std::string name =
        path + "." + std::to_string(::getpid()) + "-" + std::to_string(++drafts) + ".new";
    ::unlink(name.c_str());  // of a process that had our number and was killed
    const mode_t mode = access == FileAccess::ownerOnly ? 0600 : 0666;
    Descriptor file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file.isOpen()) return {"", said(errno)};
    std::string problem = writeAll(*file, content);
    if (problem.empty() && ::fsync(*file) != 0) problem = said(errno);
    if (file.close() != 0 && problem.empty()) problem = said(errno);
    if (!problem.empty()) {
        ::unlink(name.c_str());
        return {"", problem};
    }
    return {name, ""};
}

}  // namespace

FileContent readFile(const std::string& path) {
    using Status = FileContent::Status;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        return {errno == ENOENT ? Status::missing : Status::unreadable, {}, said(errno)};
    }
    Bytes bytes;
    std::uint8_t chunk[16384];
    for (;;) {
        const ssize_t length = ::read(*file, chunk, sizeof chunk);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return {Status::unreadable, {}, said(errno)};
        if (length == 0) return {Status::found, std::move(bytes), ""};
        append(bytes, ByteView(chunk, static_cast<std::size_t>(length)));
    }
}

std::string replaceFile(const std::string& path, ByteView content, FileAccess access) {
    const Draft draft = writeDraft(path, content, access);
    if (draft.name.empty()) return draft.problem;
    if (::rename(draft.name.c_str(), path.c_str()) != 0) {
        std::string problem = said(errno);
        ::unlink(draft.name.c_str());
        return problem;
    }
    synchronizeFolder(folderOf(path));
    return {};
}

CreateOutcome createFile(const std::string& path, ByteView content, FileAccess access) {
    const Draft draft = writeDraft(path, content, access);
    if (draft.name.empty()) return {false, false, draft.problem};
    const int linked = ::link(draft.name.c_str(), path.c_str());
    const int error = errno;
    ::unlink(draft.name.c_str());
    if (linked != 0) return {false, error == EEXIST, said(error)};
    synchronizeFolder(folderOf(path));
    return {true, false, ""};
}

std::string createPrivateFolder(const std::string& path) {
    std::error_code error;
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, error);
    if (::mkdir(path.c_str(), 0700) == 0) return {};
    if (errno != EEXIST) return said(errno);
    return std::filesystem::is_directory(path, error) ? std::string() : said(ENOTDIR);
}

FileLock::FileLock(const std::string& path)
    : descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (descriptor < 0) return;
    while (::flock(descriptor, LOCK_EX) != 0 && errno == EINTR) {
    }
}

FileLock::~FileLock() {
    if (descriptor >= 0) ::close(descriptor);
}

}  // namespace orvel::phone
