#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvelAgent/Core/AgentCore.h"

namespace orvel {

// The lines of a headless run: one JSON object each, without the line end. Other programs are
// written against these forms.
namespace headlessLine {

std::string identity(const Identity& identity);
std::string listening(std::uint16_t port);
std::string status(const AgentCore::Status& status);
std::string pairingCode(const std::optional<std::string>& code);
std::string pairingRequest(const std::optional<PairingRequest>& request);
std::string relay(bool joined);
// `until` in Unix seconds.
std::string unlock(const std::string& name, const std::optional<WallTime>& until);
std::string clipboard(const std::string& text);
std::string devices(const std::vector<PairedDevice>& devices);
std::string error(const std::string& description);

}  // namespace headlessLine

// What a line on standard input asks for.
struct HeadlessAction {
    struct Disconnect {};
    struct Forget {
        std::string deviceID;
    };
    struct ForgetAll {};
    struct SetRemoteAccess {
        AgentCore::RemoteAccess mode;
    };
    struct RejectPairing {};
    struct AllowPairing {
        std::string deviceID;
    };
    struct SetKeepAwake {
        bool keepAwake;
    };
    struct Quit {};
    struct Unknown {
        std::string description;  // what is wrong with the line, for a person
    };
    using Any = std::variant<Disconnect, Forget, ForgetAll, SetRemoteAccess, RejectPairing,
                             AllowPairing, SetKeepAwake, Quit, Unknown>;

    static Any parse(const std::string& line);
    HeadlessAction() = delete;
};

}  // namespace orvel
