#include "OrvelKit/Base/Json.h"
#include "Phone/Commands/Command.h"

namespace orvel::phone {

namespace {

std::string jsonOf(const FoundAgent& agent) {
    JsonWriter json;
    json.beginObject();
    json.key("name");
    json.string(agent.name);
    json.key("host");
    json.string(agent.hostName);
    json.key("port");
    json.unsignedInteger(agent.port);
    json.key("addresses");
    json.beginArray();
    for (const std::string& address : agent.addresses)
        json.string(address);
    json.endArray();
    json.endObject();
    return json.take();
}

void discover(CommandContext& context) {
    const Discovered discovered = context.settings.discover();
    if (!discovered.problem.empty()) {
        throw CommandError("Computers cannot be looked for on this network: " + discovered.problem +
                           ".");
    }
    for (const FoundAgent& agent : discovered.agents) {
        const std::string address = agent.addresses.empty() ? "" : agent.addresses.front();
        context.console.say(context.settings.json
                                ? jsonOf(agent)
                                : agent.name + "  " + agent.hostName + "  " + address + "  port " +
                                      std::to_string(agent.port));
    }
    if (discovered.agents.empty()) {
        throw CommandError("No computer shows itself on this network.");
    }
}

}  // namespace

void addDiscover(CLI::App& app, Command& chosen) {
    app.add_subcommand("discover", "List the computers on this network that show themselves")
        ->callback([&chosen] { chosen = discover; });
}

}  // namespace orvel::phone
