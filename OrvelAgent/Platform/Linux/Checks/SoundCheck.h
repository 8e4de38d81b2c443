#pragma once

#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// What the computer plays.
struct SoundFacts {
    bool answers = false;
    std::string server;  // its name for itself
    std::string output;  // the default one; may be empty

    // Asks the sound server that PULSE_SERVER or the session names, without starting one.
    static SoundFacts look(Duration limit);
};

std::vector<Finding> soundFindings(const SoundFacts& facts);

}  // namespace orvel
