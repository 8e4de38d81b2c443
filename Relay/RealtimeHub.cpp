#include "Relay/RealtimeHub.h"

#include <algorithm>

namespace orvel {

namespace {

constexpr double burstSeconds = 60;

std::optional<std::string> stringMember(const JsonValue& object, const char* name) {
    const auto member = object.member(name);
    const auto text = member ? member->string() : std::nullopt;
    return text ? std::optional(std::string(*text)) : std::nullopt;
}

bool flag(const std::optional<JsonValue>& object, const char* name) {
    const auto member = object ? object->member(name) : std::nullopt;
    return member && member->boolean().value_or(false);
}

// A message: exactly these four members.
std::string frame(const std::string& topic, const char* event,
                  const std::optional<std::string>& ref, const std::string& payload) {
    JsonWriter json;
    json.beginObject();
    json.key("topic");
    json.string(topic);
    json.key("event");
    json.string(event);
    json.key("ref");
    if (ref) {
        json.string(*ref);
    } else {
        json.null();
    }
    json.key("payload");
    json.value(JsonDocument(payload).root());
    json.endObject();
    return json.take();
}

std::string reply(const std::string& topic, const std::optional<std::string>& ref,
                  const char* status, const std::string& response) {
    return frame(topic, "phx_reply", ref,
                 std::string(R"({"status":")") + status + R"(","response":)" + response + "}");
}

std::string because(const std::string& reason) {
    JsonWriter json;
    json.beginObject();
    json.key("reason");
    json.string(reason);
    json.endObject();
    return json.take();
}

std::string textOf(const JsonValue& value) {
    JsonWriter json;
    json.value(value);
    return json.take();
}

}  // namespace

RealtimeHub::RealtimeHub(SerialQueue& hubQueue, Options hubOptions,
                         std::function<bool(const std::string&)> judge)
    : queue(hubQueue), options(hubOptions), acceptsToken(std::move(judge)) {}

void RealtimeHub::came(const std::shared_ptr<Client>& client) {
    members[client.get()] = {client, {}, options.messagesPerSecond * burstSeconds, queue.now()};
}

void RealtimeHub::left(Client& client) {
    const auto member = members.find(&client);
    if (member == members.end()) return;
    while (!member->second.channels.empty())
        closeChannel(client, member->second, member->second.channels.begin()->first);
    members.erase(member);
}

void RealtimeHub::closeChannel(Client& client, Member& member, const std::string& topic) {
    const auto everybody = topics.find(topic);
    if (everybody != topics.end()) {
        everybody->second.erase(&client);
        if (everybody->second.empty()) topics.erase(everybody);
    }
    member.channels.erase(member.channels.find(topic));
}

void RealtimeHub::received(Client& client, const std::string& text) {
    const auto found = members.find(&client);
    if (found == members.end()) return;
    Member& member = found->second;
    std::optional<JsonDocument> document;
    try {
        document.emplace(text);
    } catch (const JsonError&) {
        return;
    }
    const auto root = document->root();
    const auto topic = stringMember(root, "topic"), event = stringMember(root, "event");
    const auto payload = root.member("payload");
    if (!topic || !event || !payload || !root.member("ref")) return;
    const Incoming message{*topic, *event, stringMember(root, "ref"),
                           stringMember(root, "join_ref"), *payload};
    if (message.topic == "phoenix" && message.event == "heartbeat") {
        return client.send(reply("phoenix", message.ref, "ok", "{}"));
    }
    if (message.event == "phx_join") return join(client, member, message);
    if (!member.channels.count(message.topic)) {
        return client.send(reply(message.topic, message.ref, "error", because("unmatched topic")));
    }
    if (message.event == "phx_leave") return leave(client, member, message);
    if (message.event == "broadcast") return broadcast(client, member, message);
    if (message.event == "presence") client.send(reply(message.topic, message.ref, "ok", "{}"));
}

void RealtimeHub::join(Client& client, Member& member, const Incoming& message) {
    constexpr std::string_view prefix = "realtime:";
    if (!message.topic.starts_with(prefix) || message.topic.size() == prefix.size()) {
        return client.send(reply(message.topic, message.ref, "error", because("unmatched topic")));
    }
    const auto token = stringMember(message.payload, "access_token");
    if (token && !acceptsToken(*token)) {
        return refuse(member, message, "MalformedJWT: The token provided is not a valid JWT");
    }
    const auto config = message.payload.member("config");
    if (flag(config, "private")) {
        return refuse(member, message,
                      "Unauthorized: You do not have permissions to read from this Channel topic");
    }
    const auto existing = member.channels.find(message.topic);
    if (existing == member.channels.end() && member.channels.size() >= options.maxChannels) {
        return refuse(member, message, "ChannelRateLimitReached: Too many channels");
    }
    std::optional<std::optional<std::string>> replaced;
    if (existing != member.channels.end()) replaced = existing->second.joinRef;

    const auto casting = config ? config->member("broadcast") : std::nullopt;
    member.channels[message.topic] = {message.joinRef, flag(casting, "self"), flag(casting, "ack")};
    topics[message.topic].insert(&client);
    client.send(reply(message.topic, message.ref, "ok", R"({"postgres_changes":[]})"));
    if (replaced) client.send(frame(message.topic, "phx_close", *replaced, "{}"));
    const auto presence = config ? config->member("presence") : std::nullopt;
    if (flag(presence, "enabled")) {
        client.send(frame(message.topic, "presence_state", std::nullopt, "{}"));
    }
}

void RealtimeHub::refuse(Member& member, const Incoming& message, const std::string& reason) {
    if (refusals.size() >= options.maxChannels) return;  // nobody waits for that many
    const auto number = ++refusalNumber;
    refusals[number] = queue.after(
        options.refusalDelay, [this, number, client = member.client,
                               text = reply(message.topic, message.ref, "error", because(reason))] {
            if (const auto there = client.lock()) there->send(text);
            refusals.erase(number);
        });
}

void RealtimeHub::leave(Client& client, Member& member, const Incoming& message) {
    const auto joinRef = member.channels.at(message.topic).joinRef;
    closeChannel(client, member, message.topic);
    client.send(reply(message.topic, message.ref, "ok", "{}"));
    client.send(frame(message.topic, "phx_close", joinRef, "{}"));
}

bool RealtimeHub::mayContinue(Member& member) {
    const auto now = queue.now();
    const double passed = std::chrono::duration<double>(now - member.counted).count();
    member.counted = now;
    member.allowance = std::min(member.allowance + passed * options.messagesPerSecond,
                                options.messagesPerSecond * burstSeconds);
    if (member.allowance < 1) return false;
    member.allowance -= 1;
    return true;
}

void RealtimeHub::broadcast(Client& client, Member& member, const Incoming& message) {
    const Channel channel = member.channels.at(message.topic);
    if (!mayContinue(member)) {
        closeChannel(client, member, message.topic);
        client.send(frame(message.topic, "system", std::nullopt,
                          R"({"extension":"system","status":"error",)"
                          R"("message":"Too many messages per second"})"));
        client.send(frame(message.topic, "phx_close", channel.joinRef, "{}"));
        return;
    }
    const auto payload = textOf(message.payload);
    const bool fits = payload.size() <= options.maxPayload;
    if (fits) {
        const auto text = frame(message.topic, "broadcast", std::nullopt, payload);
        const auto everybody = topics.at(message.topic);
        for (Client* const other : everybody) {
            if (other != &client || channel.hearsItself) other->send(text);
        }
    }
    if (channel.acknowledged) {
        client.send(reply(message.topic, message.ref, fits ? "ok" : "error",
                          fits ? "{}" : R"("payload_size_exceeded")"));
    }
}

}  // namespace orvel
