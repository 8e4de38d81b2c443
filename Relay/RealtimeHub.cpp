#include "Relay/RealtimeHub.h"

#include <algorithm>
#include <array>

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

void writeReference(JsonWriter& json, const std::optional<std::string>& reference) {
    if (reference) {
        json.string(*reference);
    } else {
        json.null();
    }
}

using Serializer = RealtimeHub::Serializer;

struct Outgoing {
    std::string topic;
    const char* event;
    std::optional<std::string> ref, joinRef;
    std::string payload;  // JSON

    std::string written(Serializer serializer) const {
        JsonWriter json;
        if (serializer == Serializer::arrays) {
            json.beginArray();
            writeReference(json, joinRef);
            writeReference(json, ref);
            json.string(topic);
            json.string(event);
            json.value(JsonDocument(payload).root());
            json.endArray();
            return json.take();
        }
        json.beginObject();  // exactly these four members
        json.key("topic");
        json.string(topic);
        json.key("event");
        json.string(event);
        json.key("ref");
        writeReference(json, ref);
        json.key("payload");
        json.value(JsonDocument(payload).root());
        json.endObject();
        return json.take();
    }
};

Outgoing replyTo(const auto& message, const char* status, const std::string& response) {
    return {message.topic, "phx_reply", message.ref, message.joinRef,
            std::string(R"({"status":")") + status + R"(","response":)" + response + "}"};
}

Outgoing closing(const std::string& topic, const std::optional<std::string>& joinRef) {
    return {topic, "phx_close", joinRef, joinRef, "{}"};
}

Outgoing notice(const std::string& topic, const char* event, const std::string& payload) {
    return {topic, event, std::nullopt, std::nullopt, payload};
}

// A broadcast in the binary form (kind 3: the lengths of five strings, whether the payload is JSON,
// the strings, the payload) as an object of the other form; nullopt when it is none.
std::optional<std::string> objectOf(std::string_view push) {
    constexpr std::size_t headerLength = 7;
    if (push.size() < headerLength || push[0] != 3 || push[6] != 1) return std::nullopt;
    std::array<std::string_view, 5> strings;  // join_ref, ref, topic, event, metadata
    std::size_t at = headerLength;
    for (std::size_t i = 0; i < strings.size(); ++i) {
        const std::size_t length = static_cast<unsigned char>(push[i + 1]);
        if (push.size() - at < length) return std::nullopt;
        strings[i] = push.substr(at, length);
        at += length;
    }
    try {
        const JsonDocument payload(push.substr(at));
        JsonWriter json;
        json.beginObject();
        const std::pair<const char*, std::string_view> references[] = {
            {"join_ref", strings[0]}, {"ref", strings[1]}, {"topic", strings[2]}};
        for (const auto& [name, value] : references) {
            json.key(name);
            json.string(value);
        }
        json.key("event");
        json.string("broadcast");
        json.key("payload");
        json.beginObject();
        json.key("type");
        json.string("broadcast");
        json.key("event");
        json.string(strings[3]);
        json.key("payload");
        json.value(payload.root());
        json.endObject();
        json.endObject();
        return json.take();
    } catch (const JsonError&) {
        return std::nullopt;
    }
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

void RealtimeHub::came(const std::shared_ptr<Client>& client, Serializer serializer) {
    members[client.get()] = {
        client, serializer, {}, options.messagesPerSecond * burstSeconds, queue.now()};
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

void RealtimeHub::received(Client& client, const std::string& message, bool isBinary) {
    const auto found = members.find(&client);
    if (found == members.end()) return;
    Member& member = found->second;
    const bool isPush = isBinary && member.serializer == Serializer::arrays;
    const auto text = isPush ? objectOf(message) : message;
    if (!text) return;
    try {
        const JsonDocument document(*text);
        const auto incoming =
            read(document.root(), isPush ? Serializer::objects : member.serializer);
        if (incoming) handle(client, member, *incoming);
    } catch (const JsonError&) {
        // Ignored.
    }
}

std::optional<RealtimeHub::Incoming> RealtimeHub::read(const JsonValue& root,
                                                       Serializer serializer) {
    const auto textOrNone = [](const std::optional<JsonValue>& value) {
        const auto text = value ? value->string() : std::nullopt;
        return text ? std::optional(std::string(*text)) : std::nullopt;
    };
    const char* const names[] = {"join_ref", "ref", "topic", "event", "payload"};
    std::optional<JsonValue> members[std::size(names)];
    for (std::size_t i = 0; i < std::size(names); ++i) {
        if (serializer == Serializer::objects) {
            members[i] = root.member(names[i]);
        } else if (root.isArray() && root.size() == std::size(names)) {
            members[i] = root.element(i);
        }
    }
    const auto& [joinRef, ref, topic, event, payload] = members;
    if (!ref || !payload || !textOrNone(topic) || !textOrNone(event)) return std::nullopt;
    return Incoming{*textOrNone(topic), *textOrNone(event), textOrNone(ref), textOrNone(joinRef),
                    *payload};
}

void RealtimeHub::handle(Client& client, Member& member, const Incoming& message) {
    const auto answer = [&](const char* status, const std::string& response) {
        client.send(replyTo(message, status, response).written(member.serializer));
    };
    if (message.topic == "phoenix" && message.event == "heartbeat") return answer("ok", "{}");
    if (message.event == "phx_join") return join(client, member, message);
    if (!member.channels.count(message.topic)) return answer("error", because("unmatched topic"));
    if (message.event == "phx_leave") return leave(client, member, message);
    if (message.event == "broadcast") return broadcast(client, member, message);
    if (message.event == "presence") answer("ok", "{}");
}

void RealtimeHub::join(Client& client, Member& member, const Incoming& message) {
    constexpr std::string_view prefix = "realtime:";
    if (!message.topic.starts_with(prefix) || message.topic.size() == prefix.size()) {
        return client.send(
            replyTo(message, "error", because("unmatched topic")).written(member.serializer));
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
    const auto tell = [&](const Outgoing& outgoing) {
        client.send(outgoing.written(member.serializer));
    };
    tell(replyTo(message, "ok", R"({"postgres_changes":[]})"));
    if (replaced) tell(closing(message.topic, *replaced));
    const auto presence = config ? config->member("presence") : std::nullopt;
    if (flag(presence, "enabled")) tell(notice(message.topic, "presence_state", "{}"));
}

void RealtimeHub::refuse(Member& member, const Incoming& message, const std::string& reason) {
    if (refusals.size() >= options.maxChannels) return;  // nobody waits for that many
    const auto number = ++refusalNumber;
    refusals[number] =
        queue.after(options.refusalDelay,
                    [this, number, client = member.client,
                     text = replyTo(message, "error", because(reason)).written(member.serializer)] {
                        if (const auto there = client.lock()) there->send(text);
                        refusals.erase(number);
                    });
}

void RealtimeHub::leave(Client& client, Member& member, const Incoming& message) {
    const auto joinRef = member.channels.at(message.topic).joinRef;
    closeChannel(client, member, message.topic);
    client.send(replyTo(message, "ok", "{}").written(member.serializer));
    client.send(closing(message.topic, joinRef).written(member.serializer));
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
    const auto tell = [&](const Outgoing& outgoing) {
        client.send(outgoing.written(member.serializer));
    };
    if (!mayContinue(member)) {
        closeChannel(client, member, message.topic);
        tell(notice(message.topic, "system",
                    R"({"extension":"system","status":"error",)"
                    R"("message":"Too many messages per second"})"));
        return tell(closing(message.topic, channel.joinRef));
    }
    const auto outgoing = notice(message.topic, "broadcast", textOf(message.payload));
    const bool fits = outgoing.payload.size() <= options.maxPayload;
    if (fits) {
        for (Client* const other : topics.at(message.topic)) {
            if (other == &client && !channel.hearsItself) continue;
            other->send(outgoing.written(members.at(other).serializer));
        }
    }
    if (channel.acknowledged) {
        tell(replyTo(message, fits ? "ok" : "error", fits ? "{}" : R"("payload_size_exceeded")"));
    }
}

}  // namespace orvel
