#include "OrvelAgent/App/LineReader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvel {

LineReader::LineReader(int descriptor, std::function<void(std::string)> handler)
    : onLine(std::move(handler)) {
    if (pipe(wakeUp) != 0) return;  // no lines then; the program works without
    for (int end : wakeUp)
        fcntl(end, F_SETFD, FD_CLOEXEC);
    thread = std::thread([this, descriptor] { run(descriptor); });
}

LineReader::~LineReader() {
    if (!thread.joinable()) return;
    close(wakeUp[1]);
    thread.join();
    close(wakeUp[0]);
}

void LineReader::run(int descriptor) {
    std::string pending;
    bool cut = false;  // the rest of an overlong line is thrown away
    char chunk[4096];
    while (true) {
        pollfd waiting[] = {{descriptor, POLLIN, 0}, {wakeUp[0], POLLIN, 0}};
        if (poll(waiting, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (waiting[1].revents != 0) return;
        const ssize_t count = read(descriptor, chunk, sizeof chunk);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count <= 0) return;
        for (const char c : std::string_view(chunk, static_cast<std::size_t>(count))) {
            if (c == '\n') {
                onLine(std::exchange(pending, {}));
                cut = false;
            } else if (!cut) {
                pending += c;
                cut = pending.size() >= maxLine;
            }
        }
    }
}

}  // namespace orvel
