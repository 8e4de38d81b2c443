#pragma once

#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"

namespace orvel {

// The screen, and pointer and keyboard: what X server there is and what it can do.
struct DisplayFacts {
    std::string display;  // $DISPLAY
    bool isWayland = false;
    bool answers = false;
    std::vector<std::string> missing;  // extensions, by the names that X servers give them

    // Asks the server, which may take as long as it likes.
    static DisplayFacts look();
};

std::vector<Finding> displayFindings(const DisplayFacts& facts);

}  // namespace orvel
