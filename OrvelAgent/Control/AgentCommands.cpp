#include "OrvelAgent/Control/AgentCommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <clocale>
#include <iostream>

#include "OrvelAgent/Control/AgentSession.h"
#include "OrvelAgent/Control/AgentTexts.h"
#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"

namespace orvel {

namespace {

// Tells whoever reads at once, and notices when nobody does any more.
bool say(std::ostream& out, const std::string& line) {
    out << line << std::endl;
    return out.good();
}

// Members of the running agent's snapshot, as JSON text.
std::string snapshotMember(AgentSession& agent, const std::string& name) {
    const std::string snapshot = memberOfLine(agent.ask(R"({"snapshot":{}})"), "snapshot");
    return name.empty() ? snapshot : memberOfLine(snapshot, name);
}

struct Options {
    bool json = false, follow = false, all = false;
    std::string argument;
};

void status(AgentSession& agent, const Options& options, CommandContext& context) {
    if (options.json) {
        say(context.out, snapshotMember(agent, ""));
        return;
    }
    for (const auto& line : statusLines(agent.snapshot(), std::chrono::system_clock::now()))
        say(context.out, line);
}

void devices(AgentSession& agent, const Options& options, CommandContext& context) {
    if (options.json) {
        const JsonDocument list(snapshotMember(agent, "devices"));
        for (std::size_t i = 0; i < list.root().size(); ++i) {
            JsonWriter json;
            json.value(list.root().element(i));
            say(context.out, json.take());
        }
        return;
    }
    for (const auto& line : deviceLines(agent.snapshot().devices))
        say(context.out, line);
}

// By its ID, or by a name that only one has.
PairedDevice deviceNamed(const std::string& wanted, const std::vector<PairedDevice>& paired) {
    const PairedDevice* found = nullptr;
    for (const PairedDevice& device : paired) {
        if (device.id == wanted) return device;
        if (device.name != wanted) continue;
        if (found) throw CommandError("Several phones have this name. Say which by its ID.");
        found = &device;
    }
    if (!found) {
        throw CommandError("No paired phone has this ID or name. They are: orvel-agent devices");
    }
    return *found;
}

void forget(AgentSession& agent, const Options& options, CommandContext& context) {
    const auto paired = agent.snapshot().devices;
    if (options.all) {
        agent.act("forgetAll");
        say(context.out, "Forgotten: every phone (" + std::to_string(paired.size()) + ").");
        return;
    }
    const auto device = deviceNamed(options.argument, paired);
    agent.act("forget", jsonObject("deviceID", device.id));
    say(context.out, "Forgotten: " + printable(device.name) + " (" + printable(device.id) + ").");
}

void remote(AgentSession& agent, const Options& options, CommandContext& context) {
    if (!options.argument.empty()) {
        agent.act("setRemoteAccess", jsonObject("_0", options.argument));
    }
    say(context.out, rawValue(agent.snapshot().remoteAccess));
}

void disconnect(AgentSession& agent, const Options&, CommandContext& context) {
    const auto before = agent.snapshot().status;
    const auto* connected = std::get_if<AgentCore::Status::Connected>(&before.value);
    if (!connected) {
        say(context.out, "No phone is connected.");
        return;
    }
    agent.act("disconnect");
    say(context.out, "Disconnected: " + printable(connected->name) + ".");
}

void events(AgentSession& agent, const Options& options, CommandContext& context) {
    const AgentSnapshot snapshot = options.follow ? agent.follow() : agent.snapshot();
    if (options.json) {
        JsonWriter json;
        json.beginObject();
        json.key("history");
        json.beginArray();
        for (const std::string& line : snapshot.history)
            json.string(line);
        json.endArray();
        json.endObject();
        say(context.out, json.take());
    } else {
        std::for_each(snapshot.history.rbegin(), snapshot.history.rend(),
                      [&](const std::string& line) { say(context.out, printable(line)); });
        if (options.follow) say(context.out, statusText(snapshot.status));
    }
    while (options.follow) {
        const auto line = agent.next();
        if (!line) throw CommandError("The agent has ended.");
        const std::string text = options.json ? *line : eventText(*line);
        if (!text.empty() && !say(context.out, text)) return;
    }
}

void permissions(AgentSession& agent, const Options& options, CommandContext& context) {
    if (options.json) {
        say(context.out, snapshotMember(agent, "permissions"));
        return;
    }
    const auto granted = agent.snapshot().permissions;
    const auto text = [](bool isGranted) { return isGranted ? "granted" : "missing"; };
    say(context.out, std::string("see the screen                ") + text(granted.screenRecording));
    say(context.out, std::string("use the pointer and keyboard  ") + text(granted.accessibility));
    if (!granted.screenRecording || !granted.accessibility) {
        say(context.out, "Why, and what to do about it: orvel-agent doctor");
    }
}

void allow(AgentSession& agent, const Options& options, CommandContext& context) {
    const auto request = agent.snapshot().pairingRequest;
    if (!request) throw CommandError("No phone waits to be allowed.");
    // Whoever names none means the one that waits now, and not one that has come since.
    const std::string wanted = options.argument.empty() ? request->deviceID : options.argument;
    agent.act("allowPairing", jsonObject("deviceID", wanted));
    say(context.out, "Allowed: " + printable(request->name) + ".");
}

void reject(AgentSession& agent, const Options&, CommandContext& context) {
    agent.act("rejectPairing");
    say(context.out, "Refused.");
}

void keepAwake(AgentSession& agent, const Options& options, CommandContext& context) {
    if (!options.argument.empty()) {
        agent.act("setKeepAwake", options.argument == "on" ? R"({"_0":true})" : R"({"_0":false})");
    }
    say(context.out, agent.snapshot().keepAwake ? "on" : "off");
}

void quit(AgentSession& agent, const Options&, CommandContext&) {
    agent.act("quit");
    while (agent.next()) {
    }
}

using Work = void (*)(AgentSession&, const Options&, CommandContext&);

AgentCommand commandOf(Work work, const Options& options) {
    return [work, options](CommandContext& context) {
        std::setlocale(LC_TIME, "");  // dates as the user writes them
        try {
            AgentSession agent(context.location);
            work(agent, options, context);
            return 0;
        } catch (const CommandError& error) {
            context.err << error.what() << '\n';
        } catch (const JsonError&) {
            context.err << "The agent's answer cannot be read.\n";
        }
        return 1;
    };
}

}  // namespace

void addAgentCommands(CLI::App& app, AgentCommand& chosen) {
    const auto options = std::make_shared<Options>();
    const auto add = [&](const char* name, const char* help, Work work) {
        auto* command = app.add_subcommand(name, help);
        command->callback([&chosen, work, options] { chosen = commandOf(work, *options); });
        return command;
    };
    const auto withJson = [&](CLI::App* command, const char* help) {
        command->add_flag("--json", options->json, help);
        return command;
    };

    withJson(add("status", "What the running agent does, and what phones find", status),
             "As one JSON object");
    withJson(add("devices", "The paired phones", devices), "One JSON object a line");
    auto* forgetCommand = add("forget", "Unpair a phone, or all of them", forget);
    auto* id = forgetCommand->add_option("ID", options->argument, "The phone's ID, or its name");
    forgetCommand->add_flag("--all", options->all, "Every paired phone")->excludes(id);
    forgetCommand->require_option(1);
    add("remote", "Whether phones may connect over the internet; changes it when told to", remote)
        ->add_option("MODE", options->argument,
                     "on: always; standby: after a phone has unlocked it; off: never")
        ->check(CLI::IsMember({"on", "standby", "off"}));
    add("disconnect", "End the session of the connected phone", disconnect);
    auto* eventsCommand =
        withJson(add("events", "What phones did over the internet of late, oldest first", events),
                 "JSON objects, one a line: the history (newest first), then events");
    eventsCommand->add_flag("-f,--follow", options->follow, "Go on with what happens from now on");
    withJson(add("permissions", "What this desktop lets the agent do", permissions),
             "As one JSON object");
    add("allow", "Let the new phone in that waits for an answer (askBeforePairing)", allow)
        ->add_option("ID", options->argument, "Only if it is the phone with this ID");
    add("reject", "Refuse the new phone that wants to pair", reject);
    add("keep-awake", "Whether the computer is kept awake; changes it when told to", keepAwake)
        ->add_option("WHETHER", options->argument, "on or off")
        ->check(CLI::IsMember({"on", "off"}));
    add("quit", "End the running agent", quit);
}

bool showRunningAgent(const StateLocation& location) {
    try {
        AgentSession(location).act("show");
        return true;
    } catch (const CommandError&) {
        return false;
    }
}

}  // namespace orvel
