#include "OrvelAgent/Platform/SocketOptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace orvel {

void prepareListeningSocket(int) {}  // Linux has no links that need asking for

void prepareConnectedSocket(int descriptor) {
    const struct {
        int level, option, value;
    } options[] = {
        {IPPROTO_TCP, TCP_NODELAY, 1},
        {SOL_SOCKET, SO_KEEPALIVE, 1},
        {IPPROTO_TCP, TCP_KEEPIDLE, 30},
        {IPPROTO_TCP, TCP_KEEPINTVL, 10},
        {IPPROTO_TCP, TCP_KEEPCNT, 3},
        {IPPROTO_TCP, TCP_USER_TIMEOUT, 60'000},
        {IPPROTO_TCP, TCP_NOTSENT_LOWAT, 131'072},
    };
    for (const auto& [level, option, value] : options) {
        setsockopt(descriptor, level, option, &value, sizeof value);
    }
}

}  // namespace orvel
