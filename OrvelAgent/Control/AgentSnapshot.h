#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvelAgent/Core/AgentCore.h"

namespace orvel {

// Everything that a command may tell of a running agent, as it is at one moment.
struct AgentSnapshot {
    struct Listening {
        std::uint16_t port = 0;
        std::string address;    // empty: every address of this computer
        bool announced = true;  // by DNS-SD
    };
    struct Granted {
        bool screenRecording = false;
        bool accessibility = false;  // pointer and keyboard
    };

    // What says which desktop session a process belongs to, and which relay it was told of.
    static constexpr const char* sessionVariables[] = {"DISPLAY",
                                                       "WAYLAND_DISPLAY",
                                                       "XAUTHORITY",
                                                       "XDG_SESSION_TYPE",
                                                       "XDG_CURRENT_DESKTOP",
                                                       "XDG_RUNTIME_DIR",
                                                       "DBUS_SESSION_BUS_ADDRESS",
                                                       "DBUS_SYSTEM_BUS_ADDRESS",
                                                       "PULSE_SERVER",
                                                       "ORVEL_PROJECT_URL",
                                                       "ORVEL_PROJECT_KEY"};

    std::string version;   // "0.1.0 (1)"
    std::string name;      // what phones call this computer
    std::string deviceID;  // the computer's own
    AgentCore::Status status;
    std::optional<Listening> listening;
    std::vector<PairedDevice> devices;
    std::optional<std::string> pairingCode;
    std::optional<PairingRequest> pairingRequest;
    bool relayConfigured = false;
    bool relay = false;  // reachable through it
    AgentCore::RemoteAccess remoteAccess = AgentCore::RemoteAccess::on;
    std::optional<std::int64_t> unlockedUntil;  // Unix seconds
    Granted permissions;
    bool keepAwake = false;
    std::vector<std::string> history;  // newest first

    // {"snapshot":{…}}; members have the forms of the events of the same name.
    std::string line() const;
    // Throws JsonError, for the line of an agent of another version, too.
    static AgentSnapshot fromLine(std::string_view line);
};

// The value of the only member of a line that is `{"name":value}`, as JSON text; empty when the
// line is none.
std::string memberOfLine(std::string_view line, std::string_view name);

// Both have the forms that they have in a snapshot; throw JsonError.
AgentCore::Status statusFromJson(std::string_view json);
PairingRequest pairingRequestFromJson(std::string_view json);

}  // namespace orvel
