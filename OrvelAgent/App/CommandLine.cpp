#include "OrvelAgent/App/CommandLine.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>

namespace orvel {

namespace {

// An address as the listener takes it, so that a typing error is found here.
std::string checkAddress(const std::string& text) {
    unsigned char parsed[16];
    if (inet_pton(AF_INET, text.c_str(), parsed) == 1) return {};
    if (inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), parsed) == 1) return {};
    return "not an IP address: " + text;
}

// The text asked for by --help and --version, or what is wrong and how it would be right.
CommandLine::Message messageOf(const CLI::App& app, const CLI::ParseError& failure) {
    const auto named = app.get_subcommands();
    const CLI::App& meant = named.empty() ? app : *named.front();
    const std::string help = meant.help(named.empty() ? "" : app.get_name());
    if (dynamic_cast<const CLI::CallForVersion*>(&failure)) {
        return {std::string(failure.what()) + "\n", 0};
    }
    if (failure.get_exit_code() == 0) return {help, 0};
    return {std::string(failure.what()) + "\n\n" + help, 2};
}

}  // namespace

CommandLine CommandLine::parse(int count, const char* const* arguments,
                               const std::string& version) {
    CommandLine result;
    RunOptions run;
    CLI::App app{"Lets your own phone use this computer.", "orvel-agent"};
    app.set_version_flag("--version", "orvel-agent " + version);
    bool noAdvertise = false;
    app.add_flag("--headless", run.headless,
                 "JSON lines instead of windows (Docs/Architecture.md)");
    app.add_flag("--at-login", run.atLogin, "Started with the session: no window comes by itself");
    auto* stateFolder =
        app.add_option("--state-dir", result.stateFolder,
                       "The agent that keeps everything persistent below DIR, not one's own")
            ->type_name("DIR");
    app.add_option("--port", run.port, "Preferred TCP port; any free one if it is taken")
        ->capture_default_str();
    app.add_option("--bind", run.address, "Listen on this address only")
        ->type_name("ADDR")
        ->check(CLI::Validator(checkAddress, "", ""));
    app.add_flag("--no-advertise", noAdvertise, "Do not announce the service by DNS-SD");
    app.add_option("--name", run.name, "Name to show instead of the computer's");
    DefaultsCommand defaults;
    auto* defaultsCommand = app.add_subcommand(
        "defaults", "read [KEY] | write KEY VALUE | delete KEY (VALUE is JSON or a bare word)");
    defaultsCommand->add_option("arguments", defaults.arguments)->expected(0, -1);
    defaultsCommand->prefix_command();  // values may begin with a dash
    app.require_subcommand(0, 1);
    app.fallthrough();  // --state-dir may follow the command
    AgentCommand command;
    addAgentCommands(app, command);
    DoctorCommand doctor;
    auto* doctorCommand = app.add_subcommand(
        "doctor", "Look whether everything is there that the agent needs, and say what to do");
    doctorCommand->add_flag("--json", doctor.json, "One JSON object a line");

    try {
        app.parse(count, arguments);
        for (const CLI::Option* option : app.get_options()) {
            if (app.get_subcommands().empty() || option == stateFolder) continue;
            if (option->count() > 0) throw CLI::ExcludesError(option->get_name(), "a command");
        }
    } catch (const CLI::ParseError& failure) {
        result.action = messageOf(app, failure);
        return result;
    }
    run.advertise = !noAdvertise;
    if (*defaultsCommand) {
        const auto rest = defaultsCommand->remaining();
        defaults.arguments.insert(defaults.arguments.end(), rest.begin(), rest.end());
        result.action = defaults;
    } else if (*doctorCommand) {
        result.action = doctor;
    } else if (command) {
        result.action = command;
    } else {
        result.action = run;
    }
    return result;
}

}  // namespace orvel
