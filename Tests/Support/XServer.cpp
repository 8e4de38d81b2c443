#include "Tests/Support/XServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <stdexcept>

#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

namespace {

constexpr int startLimit = 20'000;  // ms

// A number and the end of the line; empty when none comes in time.
std::string readNumber(int from) {
    std::string number;
    pollfd ready{from, POLLIN, 0};
    char character = 0;
    while (poll(&ready, 1, startLimit) == 1 && read(from, &character, 1) == 1) {
        if (character == '\n') return number;
        number += character;
    }
    return {};
}

}  // namespace

XServer::XServer() : XServer(Options{}) {}

XServer::XServer(const Options& options) : chosen(options) {
    start({"Xvfb"});
}

void XServer::start(const std::vector<std::string>& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    auto whole = command;
    const std::string screen = std::to_string(chosen.width) + 'x' + std::to_string(chosen.height);
    for (const std::string& argument :
         std::vector<std::string>{"-displayfd", std::to_string(ends[1]), "-screen", "0",
                                  screen + "x24", "-noreset", "-nolisten", "tcp"}) {
        whole.push_back(argument);
    }
    whole.insert(whole.end(), chosen.arguments.begin(), chosen.arguments.end());
    const TemporaryFolder folder;
    const std::string log = folder / "xvfb.log";
    process = std::make_unique<BackgroundProcess>(
        BackgroundProcess::Options{.command = whole, .outputFile = log, .prepare = [end = ends[1]] {
                                       return fcntl(end, F_SETFD, 0) == 0;
                                   }});
    close(ends[1]);
    const std::string number = readNumber(ends[0]);
    close(ends[0]);
    if (number.empty()) throw std::runtime_error("no X server: " + fileText(log));
    name = ":" + number;
}

void XServer::kill() {
    process->signal(SIGKILL);
    process->wait();
}

void XServer::restart() {
    start({"Xvfb", name});
}

}  // namespace orvel
