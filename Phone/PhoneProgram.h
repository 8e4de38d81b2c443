#pragma once

#include <string>
#include <vector>

#include "Phone/AgentChoice.h"
#include "Phone/Console.h"

namespace orvel::phone {

// The command line of the reference phone.
struct PhoneProgram {
    // `arguments` without the program's own name. The exit code: 0 done, 1 it went wrong (one
    // sentence on the error stream), 2 wrong usage.
    static int run(std::vector<std::string> arguments, Console& console,
                   const AgentChoice::Discover& discover);
};

}  // namespace orvel::phone
