#include "OrvelAgent/Control/AgentSession.h"

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"

namespace orvel {

AgentSession::AgentSession(const StateLocation& location) : client(ControlClient::open(location)) {
    if (!client) throw CommandError("No agent runs on this state. Start it with: orvel-agent");
}

std::string AgentSession::ask(const std::string& line) {
    const auto answer = client->send(line) ? client->nextLine() : std::nullopt;
    if (!answer) {
        throw CommandError(client->hasEnded() ? "The agent has ended."
                                              : "The agent does not answer.");
    }
    try {
        const JsonDocument document(*answer);
        if (const auto error = document.root().member("error")) {
            throw CommandError("The agent refused: " +
                               printable(error->string().value_or("it says not why")) + ".");
        }
    } catch (const JsonError&) {
        throw CommandError("The agent's answer cannot be read.");
    }
    return *answer;
}

AgentSnapshot AgentSession::snapshot() {
    try {
        return AgentSnapshot::fromLine(ask(R"({"snapshot":{}})"));
    } catch (const JsonError&) {
        throw CommandError("The running agent is of another version. Start it again.");
    }
}

AgentSnapshot AgentSession::follow() {
    try {
        return AgentSnapshot::fromLine(ask(R"({"follow":{}})"));
    } catch (const JsonError&) {
        throw CommandError("The running agent is of another version. Start it again.");
    }
}

void AgentSession::act(const std::string& name, const std::string& payload) {
    ask("{\"" + name + "\":" + payload + "}");
}

std::optional<std::string> AgentSession::next() {
    while (!client->hasEnded()) {
        if (auto line = client->nextLine(std::chrono::minutes(1))) return line;
    }
    return std::nullopt;
}

std::string jsonObject(const std::string& name, const std::string& value) {
    JsonWriter json;
    json.beginObject();
    json.key(name);
    json.string(value);
    json.endObject();
    return json.take();
}

}  // namespace orvel
