#pragma once

#include <string>
#include <string_view>

#include "OrvelAgent/Platform/HostInfo.h"

namespace orvel {

// The computer's name is the pretty one of machine-info(5), else the host name without its domain.
class LinuxHostInfo : public HostInfo {
public:
    explicit LinuxHostInfo(std::string machineInfoFile = "/etc/machine-info");

    std::optional<std::string> computerName() override;
    std::string homeFolder() override;
    std::optional<std::string> shortVersion() override;
    std::optional<std::string> buildVersion() override;
    std::optional<std::string> bundleIdentifier() override;

    // The value of PRETTY_HOSTNAME in the text of such a file, its quotes and escapes undone;
    // nullopt when there is none or it is empty.
    static std::optional<std::string> prettyHostname(std::string_view machineInfo);
    // nullopt for names that say nothing, such as "localhost".
    static std::optional<std::string> nameFromHost(std::string_view hostName);

private:
    const std::string machineInfoFile;
};

}  // namespace orvel
