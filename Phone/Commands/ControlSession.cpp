#include "Phone/Commands/ControlSession.h"

#include <random>

#include "Phone/Printable.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr std::int64_t leastPixels = 960;  // nobody looks

}  // namespace

ControlSession ControlSession::open(const CommandContext& context) {
    ControlSession session;
    session.ownSession = AgentSession::open(context);
    session.agentWelcome = session.ownSession->admit(leastPixels, 60s).welcome;
    session.agentName = printable(session.ownSession->name());
    session.agentLink = &session.ownSession->phone();
    session.agentLink->send({Control::Audio{false}});
    return session;
}

std::optional<AgentLink::Event> ControlSession::next(Duration timeout) {
    auto event = agentLink->next(timeout);
    if (event ? event->as<AgentLink::Closed>() != nullptr : agentLink->closed().has_value()) {
        throw endedError();
    }
    return event;
}

bool ControlSession::pass(Duration time, const Interrupt& interrupt) {
    const MonotonicTime end = std::chrono::steady_clock::now() + time;
    for (;;) {
        const Duration left = end - std::chrono::steady_clock::now();
        if (interrupt.isRequested()) return false;
        if (left <= Duration::zero()) return true;
        next(std::min<Duration>(left, 100ms));
    }
}

// Controls are dealt with in the order in which they are sent, so the answer to a ping behind them
// says that they are.
void ControlSession::settle() {
    const std::uint64_t value = std::random_device{}();
    agentLink->send({Control::Ping{value}});
    while (await<Control::Pong>(10s).value != value) {
    }
}

CommandError ControlSession::endedError() const {
    const auto closed = agentLink->closed();
    return CommandError(agentName + ": " + (closed ? closed->describe() : "It does not answer."));
}

}  // namespace orvel::phone
