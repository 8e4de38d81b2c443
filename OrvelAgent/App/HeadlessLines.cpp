#include "OrvelAgent/App/HeadlessLines.h"

#include <boost/json.hpp>

namespace orvel {

namespace json = boost::json;

namespace {

std::string line(std::string_view member, json::value value) {
    json::object object;
    object[member] = std::move(value);
    return json::serialize(object);
}

// Whole seconds stay integers: as a double, this library would write them in scientific notation.
json::value seconds(WallTime time) {
    const double exact = secondsSinceReferenceDate(time);
    return static_cast<std::int64_t>(exact);
}

struct StatusForm {
    json::object operator()(const AgentCore::Status::Starting&) const {
        return named("starting", {});
    }
    json::object operator()(const AgentCore::Status::Waiting&) const {
        return named("waiting", {});
    }
    json::object operator()(const AgentCore::Status::Connected& connected) const {
        return named("connected", {{"name", connected.name}, {"internet", connected.internet}});
    }
    json::object operator()(const AgentCore::Status::Failed& failed) const {
        return named("failed", {{"message", failed.message}});
    }
    static json::object named(std::string_view name, json::object payload) {
        json::object object;
        object[name] = std::move(payload);
        return object;
    }
};

}  // namespace

namespace headlessLine {

std::string identity(const Identity& identity) {
    return line("identity", json::object{{"deviceID", identity.fingerprint()},
                                         {"publicKey", base64(identity.publicKey())}});
}

std::string listening(std::uint16_t port) {
    return line("listening", json::object{{"port", port}});
}

std::string status(const AgentCore::Status& status) {
    return line("status", std::visit(StatusForm(), status.value));
}

std::string pairingCode(const std::optional<std::string>& code) {
    return line("pairingCode", code ? json::value(*code) : json::value());
}

std::string pairingRequest(const std::optional<PairingRequest>& request) {
    if (!request) return line("pairingRequest", nullptr);
    return line("pairingRequest",
                json::object{{"deviceID", request->deviceID}, {"name", request->name}});
}

std::string relay(bool joined) {
    return line("relay", json::value(joined));
}

std::string unlock(const std::string& name, const std::optional<WallTime>& until) {
    json::object payload{{"name", name}};
    if (until) {
        payload["until"] =
            std::chrono::duration_cast<std::chrono::seconds>(until->time_since_epoch()).count();
    }
    return line("unlock", std::move(payload));
}

std::string clipboard(const std::string& text) {
    return line("clipboard", json::value(text));
}

std::string devices(const std::vector<PairedDevice>& devices) {
    json::array list;
    for (const PairedDevice& device : devices) {
        json::object one{{"id", device.id}, {"name", device.name}};
        if (device.pairedAt) one["pairedAt"] = seconds(*device.pairedAt);
        if (device.lastSeen) one["lastSeen"] = seconds(*device.lastSeen);
        list.push_back(std::move(one));
    }
    return line("devices", std::move(list));
}

std::string error(const std::string& description) {
    return line("error", json::value(description));
}

}  // namespace headlessLine

HeadlessAction::Any HeadlessAction::parse(const std::string& text) {
    boost::system::error_code failure;
    const auto document = json::parse(text, failure);
    if (failure || !document.is_object() || document.get_object().size() != 1 ||
        !document.get_object().begin()->value().is_object()) {
        return Unknown{"a line is one JSON object with one member, the action, which is an object"};
    }
    const auto& member = *document.get_object().begin();
    const std::string name(member.key());
    const json::object& payload = member.value().get_object();
    const auto stringOf = [&](std::string_view key) -> std::optional<std::string> {
        const auto* value = payload.if_contains(key);
        if (!value || !value->is_string()) return std::nullopt;
        return std::string(value->get_string());
    };

    if (name == "disconnect") return Disconnect{};
    if (name == "forgetAll") return ForgetAll{};
    if (name == "rejectPairing") return RejectPairing{};
    if (name == "quit") return Quit{};
    if (name == "forget" || name == "allowPairing") {
        const auto deviceID = stringOf("deviceID");
        if (!deviceID) return Unknown{name + " needs the string \"deviceID\""};
        if (name == "forget") return Forget{*deviceID};
        return AllowPairing{*deviceID};
    }
    if (name == "setRemoteAccess") {
        const auto raw = stringOf("_0");
        const auto mode = raw ? remoteAccessFrom(*raw) : std::nullopt;
        if (!mode) return Unknown{"setRemoteAccess needs \"_0\": \"on\", \"standby\" or \"off\""};
        return SetRemoteAccess{*mode};
    }
    if (name == "setKeepAwake") {
        const auto* value = payload.if_contains("_0");
        if (!value || !value->is_bool()) return Unknown{"setKeepAwake needs \"_0\": true or false"};
        return SetKeepAwake{value->get_bool()};
    }
    return Unknown{"unknown action"};
}

}  // namespace orvel
