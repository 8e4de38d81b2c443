#include "Phone/Console.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <utility>

namespace orvel::phone {

Console::Console(int inputDescriptor, std::ostream& output, std::ostream& errors,
                 Terminals whichTerminals)
    : input(inputDescriptor), out(output), err(errors), terminals(whichTerminals) {}

Console Console::ofProcess() {
    return Console(STDIN_FILENO, std::cout, std::cerr,
                   {::isatty(STDOUT_FILENO) == 1, ::isatty(STDERR_FILENO) == 1});
}

void Console::say(std::string_view line) {
    endLive();
    out << line << std::endl;
}

void Console::remark(std::string_view line) {
    endLive();
    err << line << std::endl;
}

void Console::live(std::string_view line) {
    if (terminals.out) show(out, line);
}

void Console::progress(std::string_view line) {
    if (terminals.err) show(err, line);
}

void Console::show(std::ostream& stream, std::string_view line) {
    stream << "\r\x1b[K" << line << std::flush;
    liveOn = &stream;
}

void Console::endLive() {
    if (liveOn) *std::exchange(liveOn, nullptr) << "\r\x1b[K" << std::flush;
}

std::string Console::readAll() {
    std::string text = std::exchange(pending, {});
    char chunk[4096];
    for (;;) {
        const ssize_t length = ::read(input, chunk, sizeof chunk);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return text;
        text.append(chunk, static_cast<std::size_t>(length));
    }
}

std::optional<std::string> Console::readLine(const std::function<bool()>& giveUp) {
    constexpr int tenthOfSecond = 100;
    for (;;) {
        if (const auto end = pending.find('\n'); end != std::string::npos) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            return line;
        }
        if (giveUp()) return std::nullopt;
        pollfd waiting{input, POLLIN, 0};
        if (::poll(&waiting, 1, tenthOfSecond) <= 0) continue;
        char chunk[256];
        const ssize_t length = ::read(input, chunk, sizeof chunk);
        if (length < 0 && errno == EINTR) continue;
        if (length > 0) {
            pending.append(chunk, static_cast<std::size_t>(length));
            continue;
        }
        if (pending.empty()) return std::nullopt;
        return std::exchange(pending, {});
    }
}

}  // namespace orvel::phone
