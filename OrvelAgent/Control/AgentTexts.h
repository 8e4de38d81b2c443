#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvelAgent/Control/AgentSnapshot.h"

namespace orvel {

// What the commands say of an agent to people, in plain lines. Names come from phones and are made
// harmless for a terminal.

std::string statusText(const AgentCore::Status& status);
std::string codeText(const std::string& code);  // in two groups, as it is read out

// Date and time in this computer's zone, as the user's locale writes them (ISO 8601 in the "C"
// locale); "never" for nullopt.
std::string dateText(const std::optional<WallTime>& time);

// Label and value in each line, in two columns.
std::vector<std::string> statusLines(const AgentSnapshot& snapshot, WallTime now);
// A table, the heads of its columns first; a sentence when no phone is paired.
std::vector<std::string> deviceLines(const std::vector<PairedDevice>& devices);
// An event's line for people; empty for one that they need not see.
std::string eventText(std::string_view line);

}  // namespace orvel
