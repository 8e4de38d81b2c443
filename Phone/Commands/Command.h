#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "OrvelKit/Wire/Control.h"
#include "Phone/AgentChoice.h"
#include "Phone/Console.h"

namespace orvel::phone {

// The way over the internet, when the user wants it.
struct InternetWish {
    std::optional<std::string> relay;  // a project's address, or a websocket's
    std::optional<std::string> relayKey;
    bool unlocks = false;
    bool relayOnly = false;  // only through a TURN server
};

// What holds for every command.
struct Settings {
    std::string stateFolder;
    std::string phoneName;
    AgentWish wish;
    bool json = false;
    std::optional<InternetWish> internet;  // nullopt: the local network
    // What looks for computers on the network.
    AgentChoice::Discover discover;
};

struct CommandContext {
    const Settings& settings;
    Console& console;
};

// Ends a command: one sentence for people; the program's exit code becomes 1.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The computer's refusal.
struct RejectedError : CommandError {
    RejectedError(Rejection why, const std::string& sentence)
        : CommandError(sentence), reason(why) {}
    Rejection reason;
};

using Command = std::function<void(CommandContext&)>;

// Each adds its subcommand with its options, and puts itself into `chosen` when the command line
// names it.
void addDiscover(CLI::App& app, Command& chosen);
void addPair(CLI::App& app, Command& chosen);
void addWatch(CLI::App& app, Command& chosen);
void addShot(CLI::App& app, Command& chosen);
void addDisplays(CLI::App& app, Command& chosen);
void addPing(CLI::App& app, Command& chosen);
void addMove(CLI::App& app, Command& chosen);
void addClick(CLI::App& app, Command& chosen);
void addDrag(CLI::App& app, Command& chosen);
void addScroll(CLI::App& app, Command& chosen);
void addKey(CLI::App& app, Command& chosen);
void addType(CLI::App& app, Command& chosen);
void addClip(CLI::App& app, Command& chosen);
void addList(CLI::App& app, Command& chosen);
void addGet(CLI::App& app, Command& chosen);

}  // namespace orvel::phone
