#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Control/AgentSnapshot.h"
#include "OrvelAgent/Platform/SystemChecks.h"
#include "OrvelKit/Relay/Network.h"

namespace orvel {

// `orvel-agent doctor`: looks at everything that the agent needs, whether it runs or not, and says
// what to do about what is missing. When it runs, this process takes over its session's environment
// variables first: who comes in by ssh wants to know of the desktop. Never prints a key.
struct DoctorCommand {
    bool json = false;  // a JSON object for each finding
};

struct DoctorParts {
    StateLocation state;
    std::function<std::vector<Check>(const Examined&)> systemChecks;
    Network network;  // the relay's
};

// The exit status: 0, or 1 when there is a problem. Before other threads are started; the process
// may end inside of it, when a check hangs.
int runDoctor(const DoctorParts& parts, const DoctorCommand& command, std::ostream& out);

// What the running agent says of itself; nullopt: none runs.
std::vector<Finding> agentFindings(const std::optional<AgentSnapshot>& agent);

// `isTaken`: somebody listens on the usual port.
std::vector<Finding> portFindings(const std::optional<AgentSnapshot>& agent, bool isTaken);

}  // namespace orvel
