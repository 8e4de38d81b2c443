#include "OrvelAgent/Platform/Posix/LocalSocketCalls.h"

#include <sys/socket.h>

#include <cstdio>

namespace orvel {

int newLocalSocket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// An address has room for 107 characters; the way through the open folder always fits.
bool withLocalAddress(int folder, const char* name,
                      const std::function<bool(const sockaddr_un&)>& use) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, name);
    return use(address);
}

std::optional<uid_t> userOfPeer(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
    return peer.uid;
}

}  // namespace orvel
