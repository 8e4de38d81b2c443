#pragma once

#include <string>
#include <variant>

#include "OrvelAgent/App/HeadlessLines.h"

namespace orvel {

// What a command asks of the running agent, in the form of the lines of a headless run: one JSON
// object with one member, the request, which is an object. Every action of HeadlessAction, and:
struct ControlRequest {
    struct Snapshot {};     // everything that there is to know
    struct Follow {};       // the same, and from then on each event
    struct Show {};         // open the agent's panel
    struct Environment {};  // the variables that say in which desktop session the agent runs
    using Any = std::variant<Snapshot, Follow, Show, Environment, HeadlessAction::Any>;

    static Any parse(const std::string& line);
    ControlRequest() = delete;
};

}  // namespace orvel
