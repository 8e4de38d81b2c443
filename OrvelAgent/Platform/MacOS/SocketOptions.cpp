#include "OrvelAgent/Platform/SocketOptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <initializer_list>

namespace orvel {

namespace {

// SO_RECV_ANYIF: without it a socket refuses what comes in over peer-to-peer links (AWDL). The
// kernel has it since 10.10, its public header does not.
constexpr int receiveOverAnyInterface = 0x1104;

struct Option {
    int level, option, value;
};

void apply(int descriptor, const Option& option) {
    setsockopt(descriptor, option.level, option.option, &option.value, sizeof option.value);
}

}  // namespace

void prepareListeningSocket(int descriptor) {
    apply(descriptor, {SOL_SOCKET, receiveOverAnyInterface, 1});
}

void prepareConnectedSocket(int descriptor) {
    for (const auto& option : {
             Option{IPPROTO_TCP, TCP_NODELAY, 1},
             Option{SOL_SOCKET, SO_KEEPALIVE, 1},
             Option{IPPROTO_TCP, TCP_KEEPALIVE, 30},
             Option{IPPROTO_TCP, TCP_KEEPINTVL, 10},
             Option{IPPROTO_TCP, TCP_KEEPCNT, 3},
             Option{IPPROTO_TCP, TCP_RXT_CONNDROPTIME, 60},
             Option{IPPROTO_TCP, TCP_NOTSENT_LOWAT, 131'072},
         }) {
        apply(descriptor, option);
    }
}

}  // namespace orvel
