#pragma once

#include <string>
#include <vector>

#include "OrvelAgent/Platform/SystemChecks.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

inline constexpr std::chrono::seconds checkTime{3};

struct Diagnosis {
    std::vector<Finding> findings;  // in the order of the checks
    // A check still runs, on a thread that nobody waits for: the process ends without tidying up.
    bool isUnfinished = false;

    bool hasProblems() const;
};

// Does all checks side by side. One that has not reported within `limit` is a warning.
Diagnosis examine(std::vector<Check> checks, Duration limit = checkTime);

// For people: a line for each finding, below it what to do, at the end how many there are.
std::vector<std::string> diagnosisLines(const std::vector<Finding>& findings);
// One JSON object: {"check":"…","level":"ok","text":"…","advice":"…"}.
std::string findingLine(const Finding& finding);

}  // namespace orvel
