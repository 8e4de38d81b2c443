#pragma once

#include <memory>
#include <optional>
#include <string>

namespace orvel {

// Any thread.
class HostInfo {
public:
    virtual ~HostInfo() = default;
    // What its user calls this computer; nullopt or empty when the system has no name for it.
    virtual std::optional<std::string> computerName() = 0;
    virtual std::string homeFolder() = 0;
    // Of this program: "0.1.0" and "1"; nullopt when the packaging gave none.
    virtual std::optional<std::string> shortVersion() = 0;
    virtual std::optional<std::string> buildVersion() = 0;
    // What the system calls this program where programs have identifiers: "com.example.agent".
    virtual std::optional<std::string> bundleIdentifier() = 0;

    static std::unique_ptr<HostInfo> create();
};

}  // namespace orvel
