#include "OrvelAgent/Control/AgentTexts.h"

#include <algorithm>
#include <clocale>
#include <ctime>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"

namespace orvel {

namespace {

using Status = AgentCore::Status;

struct StatusText {
    std::string operator()(const Status::Starting&) const { return "starting"; }
    std::string operator()(const Status::Waiting&) const { return "waiting for a phone"; }
    std::string operator()(const Status::Connected& connected) const {
        return "connected: " + printable(connected.name) +
               (connected.internet ? " (over the internet)" : " (local network)");
    }
    std::string operator()(const Status::Failed& failed) const {
        return "failed: " + printable(failed.message);
    }
};

std::string formatted(WallTime time, const char* format) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[128];
    return {text, std::strftime(text, sizeof text, format, &local)};
}

bool isPlainLocale() {
    const std::string_view name = std::setlocale(LC_TIME, nullptr);
    return name == "C" || name == "POSIX" || name.starts_with("C.");
}

std::string yesOrNo(bool value) {
    return value ? "yes" : "no";
}

std::string remoteAccessText(const AgentSnapshot& snapshot, WallTime now) {
    switch (snapshot.remoteAccess) {
        case RemoteAccess::on:
            return "on: paired phones connect from anywhere";
        case RemoteAccess::off:
            return "off: this network only";
        case RemoteAccess::standby:
            break;
    }
    const WallTime until{std::chrono::seconds(snapshot.unlockedUntil.value_or(0))};
    if (until > now) return "standby: unlocked until " + dateText(until);
    return "standby: locked until a phone unlocks it";
}

std::string relayText(const AgentSnapshot& snapshot) {
    if (!snapshot.relayConfigured) return "not configured";
    if (snapshot.remoteAccess == RemoteAccess::off) return "not used";
    return snapshot.relay ? "online" : "offline";
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

}  // namespace

std::string statusText(const Status& status) {
    return std::visit(StatusText(), status.value);
}

std::string codeText(const std::string& code) {
    if (code.size() != 6) return printable(code);
    return printable(code.substr(0, 3) + " " + code.substr(3));
}

std::string dateText(const std::optional<WallTime>& time) {
    if (!time) return "never";
    return formatted(*time, isPlainLocale() ? "%Y-%m-%d %H:%M" : "%x %H:%M");
}

std::vector<std::string> statusLines(const AgentSnapshot& snapshot, WallTime now) {
    std::vector<std::string> lines;
    const auto add = [&](const char* label, const std::string& value) {
        lines.push_back(padded(label, 16) + value);
    };
    add("state", statusText(snapshot.status));
    if (snapshot.pairingCode) {
        add("pairing code", codeText(*snapshot.pairingCode) +
                                ": type it on the phone, or refuse it: orvel-agent reject");
    }
    if (const auto& request = snapshot.pairingRequest) {
        add("wants to pair", printable(request->name) + ": orvel-agent allow " +
                                 printable(request->deviceID) + ", or: orvel-agent reject");
    }
    if (const auto& listening = snapshot.listening) {
        add("listens on",
            "port " + std::to_string(listening->port) + " of " +
                (listening->address.empty() ? "every address" : printable(listening->address)));
    } else {
        add("listens on", "nothing");
    }
    add("paired phones", std::to_string(snapshot.devices.size()));
    add("remote access", remoteAccessText(snapshot, now));
    add("relay", relayText(snapshot));
    add("may see screen", yesOrNo(snapshot.permissions.screenRecording));
    add("may type, click", yesOrNo(snapshot.permissions.accessibility));
    add("keeps awake", yesOrNo(snapshot.keepAwake));
    add("name", printable(snapshot.name));
    add("device ID", printable(snapshot.deviceID));
    add("version", printable(snapshot.version));
    return lines;
}

std::vector<std::string> deviceLines(const std::vector<PairedDevice>& devices) {
    if (devices.empty()) return {"No phone is paired."};
    struct Row {
        std::string id, paired, seen, name;
    };
    std::vector<Row> rows{{"ID", "PAIRED", "LAST SEEN", "NAME"}};
    for (const PairedDevice& device : devices) {
        rows.push_back({printable(device.id), dateText(device.pairedAt), dateText(device.lastSeen),
                        printable(device.name)});
    }
    const auto widthOf = [&](auto column) {
        std::size_t width = 0;
        for (const Row& row : rows)
            width = std::max(width, (row.*column).size());
        return width + 2;
    };
    std::vector<std::string> lines;
    for (const Row& row : rows) {
        // The names come last: how wide their characters are is the terminal's business.
        lines.push_back(padded(row.id, widthOf(&Row::id)) +
                        padded(row.paired, widthOf(&Row::paired)) +
                        padded(row.seen, widthOf(&Row::seen)) + row.name);
    }
    return lines;
}

std::string eventText(std::string_view line) {
    const JsonDocument document(line);
    const JsonValue root = document.root();
    if (!root.isObject() || root.size() != 1) return {};
    const auto [name, value] = root.firstMember();
    if (name == "status") return statusText(statusFromJson(memberOfLine(line, name)));
    if (name == "listening") {
        const auto port = value.member("port");
        return "listening on port " + std::to_string(port ? port->integer().value_or(0) : 0);
    }
    if (name == "pairingCode") {
        if (value.isNull()) return "no phone wants to pair any more";
        return "a new phone wants to pair, its code: " +
               codeText(std::string(value.string().value_or("")));
    }
    if (name == "pairingRequest") {
        if (value.isNull()) return "no phone waits to be allowed any more";
        const auto request = pairingRequestFromJson(memberOfLine(line, name));
        return printable(request.name) + " waits to be allowed: orvel-agent allow " +
               printable(request.deviceID);
    }
    if (name == "relay")
        return value.boolean().value_or(false) ? "relay: online" : "relay: offline";
    if (name == "devices") return "paired phones: " + std::to_string(value.size());
    if (name == "history" && value.size() > 0) {
        return printable(value.element(0).string().value_or(""));
    }
    return {};
}

}  // namespace orvel
