#include "OrvelKit/Relay/RealtimeMessage.h"

#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

std::optional<std::string> stringMember(const JsonValue& object, const char* name) {
    const auto member = object.member(name);
    const auto text = member ? member->string() : std::nullopt;
    return text ? std::optional(std::string(*text)) : std::nullopt;
}

// Begins a message: all but the payload's content.
JsonWriter begin(const std::string& topic, const char* event, std::int64_t ref,
                 const std::optional<std::string>& joinRef) {
    JsonWriter json;
    json.beginObject();
    json.key("topic");
    json.string(topic);
    json.key("event");
    json.string(event);
    json.key("ref");
    json.string(std::to_string(ref));
    if (joinRef) {
        json.key("join_ref");
        json.string(*joinRef);
    }
    json.key("payload");
    json.beginObject();
    return json;
}

std::string end(JsonWriter& json) {
    json.endObject();
    json.endObject();
    return json.take();
}

}  // namespace

std::optional<RealtimeMessage> RealtimeMessage::parse(std::string_view text) {
    try {
        const JsonDocument document(text);
        auto event = stringMember(document.root(), "event");
        if (!event) return std::nullopt;
        RealtimeMessage message{*std::move(event), stringMember(document.root(), "ref"),
                                std::nullopt, std::nullopt};
        if (const auto payload = document.root().member("payload")) {
            message.status = stringMember(*payload, "status");
            const auto inner = payload->member("payload");
            if (inner && inner->isObject()) {
                JsonWriter json;
                json.value(*inner);
                message.innerPayload = json.take();
            }
        }
        return message;
    } catch (const JsonError&) {
        return std::nullopt;
    }
}

std::string RealtimeMessage::join(const std::string& topic, std::int64_t ref,
                                  const std::string& key) {
    auto json = begin(topic, "phx_join", ref, std::to_string(ref));
    json.key("config");
    json.beginObject();
    json.key("broadcast");
    json.beginObject();
    json.key("self");
    json.boolean(false);
    json.key("ack");
    json.boolean(false);
    json.endObject();
    json.key("presence");
    json.beginObject();
    json.key("key");
    json.string("");
    json.endObject();
    json.key("private");
    json.boolean(false);
    json.endObject();
    json.key("access_token");
    json.string(key);
    return end(json);
}

std::string RealtimeMessage::heartbeat(std::int64_t ref) {
    auto json = begin("phoenix", "heartbeat", ref, std::nullopt);
    return end(json);
}

std::optional<std::string> RealtimeMessage::broadcast(const std::string& topic, std::int64_t ref,
                                                      const std::string& joinRef,
                                                      ByteView payload) {
    try {
        const JsonDocument document(textOf(payload));
        if (!document.root().isObject()) return std::nullopt;
        auto json = begin(topic, "broadcast", ref, joinRef);
        json.key("type");
        json.string("broadcast");
        json.key("event");
        json.string("signal");
        json.key("payload");
        json.value(document.root());
        return end(json);
    } catch (const JsonError&) {
        return std::nullopt;
    }
}

}  // namespace orvel
