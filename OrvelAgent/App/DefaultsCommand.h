#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/JsonDefaults.h"

namespace orvel {

// `orvel-agent defaults read [KEY] | write KEY VALUE | delete KEY`: the user defaults as they are
// stored, for people and scripts, also while an agent runs on them. `arguments` are the words after
// `defaults`. VALUE is JSON; what does not look like JSON is a string.
//
// Results go to `out`, complaints to `err`. Returns the exit status: 0; 1 when there is no such key
// to read or the defaults cannot be read or written; 2 for arguments that are none of these.
int runDefaultsCommand(JsonDefaults& defaults, const std::vector<std::string>& arguments,
                       std::ostream& out, std::ostream& err);

}  // namespace orvel
