#include "OrvelAgent/Control/ControlClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "OrvelAgent/Platform/ControlSocket.h"

namespace orvel {

using Clock = std::chrono::steady_clock;

std::unique_ptr<ControlClient> ControlClient::open(const StateLocation& location) {
    const int connected = ControlSocket::connect(location);
    return connected < 0 ? nullptr : std::make_unique<ControlClient>(connected);
}

ControlClient::~ControlClient() {
    ::close(descriptor);
}

bool ControlClient::wait(short event, MonotonicTime deadline) const {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{descriptor, event, 0};
        const int ready =
            ::poll(&waiting, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
        if (Clock::now() >= deadline) return false;
    }
}

bool ControlClient::send(const std::string& line, Duration limit) {
    const auto deadline = Clock::now() + limit;
    const std::string text = line + '\n';
    std::string_view rest = text;
    while (!rest.empty()) {
        // The process may have no handler for SIGPIPE.
        const ssize_t count = ::send(descriptor, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EAGAIN && errno != EINTR) {
            return false;
        } else if (!wait(POLLOUT, deadline)) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> ControlClient::nextLine(Duration limit) {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        if (const auto end = pending.find('\n'); end != std::string::npos) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            return line;
        }
        if (ended || !wait(POLLIN, deadline)) return std::nullopt;
        char chunk[4096];
        const ssize_t count = ::recv(descriptor, chunk, sizeof chunk, 0);
        if (count > 0) {
            pending.append(chunk, static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            ended = true;
        }
    }
}

}  // namespace orvel
