#pragma once

#include "OrvelAgent/App/AgentModel.h"

namespace orvel {

// The agent in a terminal, for people: what happens in plain lines, the pairing code above all.
// Connects to the model; before the model's start(). Main queue only.
void showInTerminal(AgentModel& model);

}  // namespace orvel
