#include "OrvelAgent/Control/AgentSnapshot.h"

#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

using Status = AgentCore::Status;

template <>
struct JsonCase<Status::Starting> {
    static constexpr const char* name = "starting";
    static void payload(auto&, auto&) {}
};
template <>
struct JsonCase<Status::Waiting> {
    static constexpr const char* name = "waiting";
    static void payload(auto&, auto&) {}
};
template <>
struct JsonCase<Status::Connected> {
    static constexpr const char* name = "connected";
    static void payload(auto& json, auto& connected) {
        json("name", connected.name);
        json("internet", connected.internet);
    }
};
template <>
struct JsonCase<Status::Failed> {
    static constexpr const char* name = "failed";
    static void payload(auto& json, auto& failed) { json("message", failed.message); }
};
template <>
struct JsonForm<Status> {
    static constexpr auto raw = &Status::value;
};

template <>
struct JsonForm<AgentSnapshot::Listening> {
    static void members(auto& json, auto& listening) {
        json("port", listening.port);
        json("address", listening.address);
        json("announced", listening.announced);
    }
};
template <>
struct JsonForm<AgentSnapshot::Granted> {
    static void members(auto& json, auto& granted) {
        json("screenRecording", granted.screenRecording);
        json("accessibility", granted.accessibility);
    }
};
template <>
struct JsonForm<PairedDevice> {
    static void members(auto& json, auto& device) {
        json("id", device.id);
        json("name", device.name);
        json("pairedAt", device.pairedAt);
        json("lastSeen", device.lastSeen);
    }
};
template <>
struct JsonForm<PairingRequest> {
    static void members(auto& json, auto& request) {
        json("deviceID", request.deviceID);
        json("name", request.name);
    }
};
template <>
struct JsonForm<RemoteAccess> {
    static constexpr JsonName<RemoteAccess> names[] = {
        {RemoteAccess::on, "on"}, {RemoteAccess::standby, "standby"}, {RemoteAccess::off, "off"}};
};
template <>
struct JsonForm<AgentSnapshot> {
    static void members(auto& json, auto& snapshot) {
        json("version", snapshot.version);
        json("name", snapshot.name);
        json("deviceID", snapshot.deviceID);
        json("status", snapshot.status);
        json("listening", snapshot.listening);
        json("devices", snapshot.devices);
        json("pairingCode", snapshot.pairingCode);
        json("pairingRequest", snapshot.pairingRequest);
        json("relayConfigured", snapshot.relayConfigured);
        json("relay", snapshot.relay);
        json("remoteAccess", snapshot.remoteAccess);
        json("unlockedUntil", snapshot.unlockedUntil);
        json("permissions", snapshot.permissions);
        json("keepAwake", snapshot.keepAwake);
        json("history", snapshot.history);
    }
};

std::string AgentSnapshot::line() const {
    return R"({"snapshot":)" + encodeJson(*this) + "}";
}

AgentSnapshot AgentSnapshot::fromLine(std::string_view line) {
    return decodeJson<AgentSnapshot>(memberOfLine(line, "snapshot"));
}

std::string memberOfLine(std::string_view line, std::string_view name) {
    const JsonDocument document(line);
    const auto member = document.root().member(name);
    if (!member) return {};
    JsonWriter json;
    json.value(*member);
    return json.take();
}

AgentCore::Status statusFromJson(std::string_view json) {
    return decodeJson<AgentCore::Status>(json);
}

PairingRequest pairingRequestFromJson(std::string_view json) {
    return decodeJson<PairingRequest>(json);
}

}  // namespace orvel
