#pragma once

#include "OrvelAgent/Platform/HostInfo.h"

namespace orvel {

// Set the fields before handing it out.
class FakeHostInfo : public HostInfo {
public:
    std::optional<std::string> name = "Test Computer";
    std::string home = "/nonexistent/home";
    std::optional<std::string> shortVersionText = "0.1.0";
    std::optional<std::string> buildVersionText = "1";
    std::optional<std::string> bundle;

    std::optional<std::string> computerName() override { return name; }
    std::string homeFolder() override { return home; }
    std::optional<std::string> shortVersion() override { return shortVersionText; }
    std::optional<std::string> buildVersion() override { return buildVersionText; }
    std::optional<std::string> bundleIdentifier() override { return bundle; }
};

}  // namespace orvel
