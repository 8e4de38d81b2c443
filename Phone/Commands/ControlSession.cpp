#include "Phone/Commands/ControlSession.h"

#include <random>

#include "OrvelKit/Base/Printable.h"
#include "Phone/LinkHost.h"
#include "Phone/SharedLink.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr std::int64_t leastPixels = 960;  // nobody looks
constexpr Duration sharePatience = 3s;

}  // namespace

ControlSession ControlSession::open(const CommandContext& context) {
    ControlSession session;
    auto choice = AgentSession::choose(context);
    if (session.share(context, choice)) return session;
    session.ownSession = context.settings.internet
                             ? AgentSession::openOverInternet(context, std::move(choice),
                                                              AgentSession::Video::unwanted)
                             : AgentSession::open(context, std::move(choice));
    session.agentWelcome = session.ownSession->admit(leastPixels, 60s).welcome;
    session.agentName = printable(session.ownSession->name());
    session.ownSession->link().send({Control::Audio{false}});
    return session;
}

bool ControlSession::share(const CommandContext& context, const AgentSession::Choice& choice) {
    const auto& expected = choice.target.expected;
    if (!expected) return false;
    auto link = SharedLink::open(LinkHost::pathFor(context.settings.stateFolder, expected->id));
    const auto welcome = link ? link->waitFor<Welcome>(sharePatience) : std::nullopt;
    if (!welcome || welcome->agentKey != expected->publicKey) return false;
    sharedLink = std::move(link);
    agentWelcome = *welcome;
    agentName = printable(welcome->macName);
    return true;
}

AgentLink& ControlSession::link() {
    return sharedLink ? *sharedLink : ownSession->link();
}

std::optional<AgentLink::Event> ControlSession::next(Duration timeout) {
    auto event = link().next(timeout);
    if (event ? event->as<AgentLink::Closed>() != nullptr : link().closed().has_value()) {
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
    link().send({Control::Ping{value}});
    while (await<Control::Pong>(10s).value != value) {
    }
}

CommandError ControlSession::endedError() {
    const auto closed = link().closed();
    return CommandError(agentName + ": " + (closed ? closed->describe() : "It does not answer."));
}

}  // namespace orvel::phone
