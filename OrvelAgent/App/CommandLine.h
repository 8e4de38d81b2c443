#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvelAgent/Control/AgentCommands.h"
#include "OrvelAgent/Doctor/DoctorCommand.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

// How the agent is to run.
struct RunOptions {
    bool headless = false;
    bool atLogin = false;  // the desktop has started it, not a person
    std::uint16_t port = Orvel::port;
    std::string address;  // --bind; empty: every address
    bool advertise = true;
    std::optional<std::string> name;
};

// What orvel-agent was asked to do.
struct CommandLine {
    struct DefaultsCommand {
        std::vector<std::string> arguments;  // what follows `defaults`
    };
    // The command line was wrong, or asked for nothing but text.
    struct Message {
        std::string text;
        int exitStatus;  // 2: print it to stderr
    };

    std::variant<RunOptions, DefaultsCommand, AgentCommand, DoctorCommand, Message> action;
    std::optional<std::string> stateFolder;

    static CommandLine parse(int count, const char* const* arguments, const std::string& version);
};

}  // namespace orvel
