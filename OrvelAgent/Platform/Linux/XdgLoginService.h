#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/AutostartEntry.h"
#include "OrvelAgent/Platform/LoginService.h"

namespace orvel {

// By the autostart entry of the desktop session. The user's own entry goes before those of the
// system, which only the system changes: against them the user has one that says no. What others
// wrote is changed no further than needed, and kept aside where it is no entry at all.
class XdgLoginService : public LoginService {
public:
    static constexpr const char* fileName = "orvel-agent.desktop";

    struct Places {
        std::string userFolder;                  // "autostart" in the user's configuration
        std::vector<std::string> systemFolders;  // the same of the system, best first
        std::string program;  // absolute path of this one, or its name when it is a package's
        std::string desktop;  // XDG_CURRENT_DESKTOP
        static Places ofUser();
    };

    explicit XdgLoginService(Places places = Places::ofUser());

    bool isRegistered() override;
    void registerProgram() override;
    void unregisterProgram() override;

private:
    struct Found {
        bool exists = false;
        int error = 0;  // why it could not be read
        std::optional<AutostartEntry> entry;
        bool starts = false;
        std::string text;
    };
    Found read(const std::string& folder) const;
    Found readSystem() const;  // the one that counts where the user has none
    std::string userFile() const { return places.userFolder + "/" + fileName; }
    AutostartEntry ownEntry() const;
    int write(const std::string& text) const;
    int keepAside() const;

    const Places places;
};

}  // namespace orvel
