#pragma once

#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>

#include "OrvelAgent/Control/AgentSnapshot.h"
#include "OrvelAgent/Control/ControlClient.h"

namespace orvel {

// Ends a command: a sentence for people; its exit status becomes 1.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One command's talk with the running agent. Everything throws CommandError: when no agent runs,
// does not answer in time, or refuses.
class AgentSession {
public:
    explicit AgentSession(const StateLocation& location);

    AgentSnapshot snapshot();
    // The snapshot, and from then on events from next().
    AgentSnapshot follow();
    // One of HeadlessAction's forms, as `{"name":payload}`; returns when it has taken effect.
    void act(const std::string& name, const std::string& payload = "{}");
    std::string ask(const std::string& line);  // the line that answers
    // The next event, however long that takes; nullopt when the agent has ended.
    std::optional<std::string> next();

private:
    const std::unique_ptr<ControlClient> client;
};

// {"name":"value"} and the like, for payloads.
std::string jsonObject(const std::string& name, const std::string& value);

}  // namespace orvel
