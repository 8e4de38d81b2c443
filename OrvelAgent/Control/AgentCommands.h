#pragma once

#include <functional>
#include <iosfwd>

#include "OrvelAgent/Platform/StateStores.h"

namespace CLI {
class App;
}

namespace orvel {

// What a command needs of the process: the agent's state, and where to write.
struct CommandContext {
    const StateLocation& location;
    std::ostream& out;  // results
    std::ostream& err;  // what went wrong, in a sentence
};

// A command that asks the running agent or tells it what to do. Returns the exit status: 0, or 1
// when no agent runs or it refused.
using AgentCommand = std::function<int(CommandContext&)>;

// Adds the subcommands; each puts itself into `chosen` when the command line names it.
void addAgentCommands(CLI::App& app, AgentCommand& chosen);

// For a start beside a running agent: asks that one to open its panel. False when it has none or
// does not answer.
bool showRunningAgent(const StateLocation& location);

}  // namespace orvel
