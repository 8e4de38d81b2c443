#include "OrvelAgent/App/CommandLine.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <sstream>

namespace orvel {

namespace {

// An address as the listener takes it, so that a typing error is found here.
std::string checkAddress(const std::string& text) {
    unsigned char parsed[16];
    if (inet_pton(AF_INET, text.c_str(), parsed) == 1) return {};
    if (inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), parsed) == 1) return {};
    return "not an IP address: " + text;
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
    app.add_option("--state-dir", result.stateFolder, "Keep everything persistent below DIR")
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

    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& failure) {
        std::ostringstream out, err;
        const bool asked = app.exit(failure, out, err) == 0;
        result.action = Message{asked ? out.str() : err.str() + "\n" + app.help(), asked ? 0 : 2};
        return result;
    }
    run.advertise = !noAdvertise;
    if (*defaultsCommand) {
        const auto rest = defaultsCommand->remaining();
        defaults.arguments.insert(defaults.arguments.end(), rest.begin(), rest.end());
        result.action = defaults;
    } else {
        result.action = run;
    }
    return result;
}

}  // namespace orvel
