#include "Phone/Interrupt.h"

#include <csignal>

namespace orvel::phone {

namespace {

volatile std::sig_atomic_t requested = 0;

void request(int signal) {
    requested = 1;
    std::signal(signal, SIG_DFL);
}

}  // namespace

Interrupt::Interrupt() {
    requested = 0;
    std::signal(SIGINT, request);
    std::signal(SIGTERM, request);
}

Interrupt::~Interrupt() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

bool Interrupt::isRequested() const {
    return requested != 0;
}

}  // namespace orvel::phone
