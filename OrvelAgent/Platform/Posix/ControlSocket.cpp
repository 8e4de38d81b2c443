#include "OrvelAgent/Platform/ControlSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelAgent/Platform/Posix/LocalSocketCalls.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

namespace {

constexpr const char* fileName = "agent.socket";
constexpr int backlog = 64;

FileDescriptor openFolder(const std::string& path) {
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

class SocketFile final : public ControlSocket {
public:
    // 0, or the errno value of what failed.
    int open(const std::string& path) {
        folder = openFolder(path);
        if (!folder) return errno;
        listener = newLocalSocket();
        if (listener < 0) return errno;
        unlinkat(folder.get(), fileName, 0);
        // Nobody can connect before listen().
        const bool listens =
            withLocalAddress(folder.get(), fileName,
                             [&](auto& address) {
                                 return bind(listener, generic(address), sizeof address) == 0;
                             }) &&
            fchmodat(folder.get(), fileName, 0600, 0) == 0 &&
            fstatat(folder.get(), fileName, &made, AT_SYMLINK_NOFOLLOW) == 0 &&
            ::listen(listener, backlog) == 0;
        return listens ? 0 : errno;
    }

    ~SocketFile() override {
        if (listener >= 0) close(listener);
        struct stat there;
        if (fstatat(folder.get(), fileName, &there, AT_SYMLINK_NOFOLLOW) == 0 &&
            there.st_dev == made.st_dev && there.st_ino == made.st_ino) {
            unlinkat(folder.get(), fileName, 0);
        }
    }

    int takeListener() override { return std::exchange(listener, -1); }

private:
    FileDescriptor folder;
    int listener = -1;
    struct stat made {};
};

}  // namespace

std::unique_ptr<ControlSocket> ControlSocket::listen(const InstanceLock& lock) {
    auto file = std::make_unique<SocketFile>();
    if (const int error = file->open(lock.folder())) {
        std::fprintf(stderr, "orvel: no control socket, commands cannot reach this agent: %s\n",
                     describeError(error).c_str());
        return nullptr;
    }
    return file;
}

int ControlSocket::connect(const StateLocation& location) {
    for (const auto& path : StatePlaces::of(location).lockFolders) {
        const FileDescriptor folder = openFolder(path);
        if (!folder) continue;
        const int stream = newLocalSocket();
        const bool isConnected =
            stream >= 0 && withLocalAddress(folder.get(), fileName, [&](auto& address) {
                return ::connect(stream, generic(address), sizeof address) == 0;
            });
        // In a folder that others may write to, somebody else's program may sit there.
        if (isConnected && (isOfOwnUser(stream) || geteuid() == 0)) return stream;
        if (stream >= 0) close(stream);
    }
    return -1;
}

bool ControlSocket::isOfOwnUser(int descriptor) {
    const auto user = userOfPeer(descriptor);
    return user && (*user == geteuid() || *user == 0);
}

}  // namespace orvel
