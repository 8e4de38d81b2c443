#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Phone/AgentLink.h"
#include "Phone/Commands/AgentSession.h"
#include "Phone/Interrupt.h"

namespace orvel::phone {

// What a command needs that only says and asks something: a link to the computer that is meant, on
// which it obeys. When an `orvel-phone watch` of the same state folder runs, that is a share in its
// connection, since a connection of its own would end that one; else its own, without sound.
// Everything here throws CommandError with what to tell the user.
class ControlSession {
public:
    static ControlSession open(const CommandContext& context);

    AgentLink& link();
    const std::string& name() const { return agentName; }  // printable
    const Welcome& welcome() const { return agentWelcome; }

    // The next event; nullopt when none came in time. Throws when the link has ended.
    std::optional<AgentLink::Event> next(Duration timeout);
    // The next event of type T; throws when none came in time.
    template <class T>
    T await(Duration patience = std::chrono::seconds(30));

    // Lets time pass, dropping what comes; false: interrupted before.
    bool pass(Duration time, const Interrupt& interrupt);

    // Waits until the computer has taken everything that was sent before.
    void settle();

    CommandError endedError();

private:
    bool share(const CommandContext& context, const AgentSession::Choice& choice);

    std::optional<AgentSession> ownSession;  // either this
    std::unique_ptr<AgentLink> sharedLink;   // else this
    std::string agentName;
    Welcome agentWelcome;
};

template <class T>
T ControlSession::await(Duration patience) {
    if (auto found = link().waitFor<T>(patience)) return *std::move(found);
    if (link().closed()) throw endedError();
    throw CommandError(agentName + " does not answer.");
}

}  // namespace orvel::phone
