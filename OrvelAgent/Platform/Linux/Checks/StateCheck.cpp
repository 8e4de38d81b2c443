#include "OrvelAgent/Platform/Linux/Checks/StateCheck.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "OrvelAgent/Platform/LoginService.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

namespace {

using Level = Finding::Level;
using std::filesystem::path;

constexpr std::uint64_t littleSpace = 1 << 20;
constexpr const char* unitName = "orvel-agent.service";

StateFacts::Place placeAt(std::string what, const std::string& where) {
    StateFacts::Place place{std::move(what)};
    struct stat found;
    place.exists = stat(where.c_str(), &found) == 0;
    if (!place.exists) return place;
    place.isOwn = found.st_uid == geteuid();
    place.othersMay = found.st_mode & 077;
    place.isWritable = access(where.c_str(), W_OK) == 0;
    return place;
}

// The nearest folder on the way there that exists.
std::string existingFolder(path folder) {
    std::error_code ignored;
    while (!std::filesystem::exists(folder, ignored) && folder.has_relative_path())
        folder = folder.parent_path();
    return folder;
}

}  // namespace

StateFacts StateFacts::look(const StateLocation& state) {
    const auto places = StatePlaces::of(state);
    const path defaultsFolder = path(places.defaultsFile).parent_path();
    StateFacts facts;
    auto folder = placeAt("the folder of the settings", existingFolder(defaultsFolder));
    // Others may look into folders; what they may not is below.
    folder.othersMay &= 022;
    facts.places = {folder, placeAt("the settings", places.defaultsFile),
                    placeAt("the folder of the secrets", places.secretsFolder)};
    struct statvfs volume;
    if (statvfs(existingFolder(defaultsFolder).c_str(), &volume) == 0) {
        facts.freeBytes = std::uint64_t(volume.f_bavail) * volume.f_frsize;
    }
    return facts;
}

std::vector<Finding> stateFindings(const StateFacts& facts) {
    std::vector<Finding> findings;
    const auto add = [&](Level level, std::string text, std::string advice) {
        findings.push_back({level, "state", std::move(text), std::move(advice)});
    };
    for (const auto& place : facts.places) {
        if (!place.exists) continue;
        if (!place.isOwn) {
            add(Level::problem, place.what + " belongs to another user",
                "Give it to the user that the agent runs as (chown).");
        } else if (!place.isWritable) {
            add(Level::problem, place.what + " cannot be written: pairings are lost at the end",
                "Give this user the right to write there (chmod u+w), or mount it writable.");
        } else if (place.othersMay != 0) {
            add(Level::warning, "other users get at " + place.what, "Take that away: chmod go-rwx");
        }
    }
    if (facts.freeBytes && *facts.freeBytes < littleSpace) {
        add(Level::problem, "the disk is full: nothing new is kept", "Make room.");
    }
    if (findings.empty()) add(Level::ok, "is kept, and is this user's alone", "");
    return findings;
}

StartFacts StartFacts::look(const StateLocation& state) {
    StartFacts facts;
    facts.isBesideOwnState = state.folder.has_value();
    if (facts.isBesideOwnState) return facts;
    const auto has = [](const char* variable) {
        const char* value = std::getenv(variable);
        return value && *value;
    };
    facts.hasDesktop = has("DISPLAY") || has("WAYLAND_DISPLAY");
    facts.startsAtLogin = LoginService::create()->isRegistered();
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const std::string base = config && *config == '/' ? config : homeFolderOfUser() + "/.config";
    std::error_code ignored;
    for (const char* target : {"default.target", "graphical-session.target"}) {
        for (const std::string& units :
             {base + "/systemd/user", std::string("/etc/systemd/user")}) {
            facts.unitIsEnabled =
                facts.unitIsEnabled ||
                std::filesystem::is_symlink(units + "/" + target + ".wants/" + unitName, ignored);
        }
    }
    const passwd* user = getpwuid(geteuid());
    facts.lingers = user && std::filesystem::exists(
                                std::string("/var/lib/systemd/linger/") + user->pw_name, ignored);
    return facts;
}

std::vector<Finding> startFindings(const StartFacts& facts) {
    const auto finding = [](Level level, std::string text, std::string advice) {
        return std::vector{Finding{level, "start", std::move(text), std::move(advice)}};
    };
    if (facts.isBesideOwnState) {
        return finding(Level::ok, "an agent with a folder of its own is started by hand", "");
    }
    if (facts.startsAtLogin && facts.unitIsEnabled) {
        return finding(Level::warning,
                       "two things start the agent: the desktop's autostart and systemd",
                       "Keep one: systemctl --user disable " + std::string(unitName));
    }
    if (facts.startsAtLogin) return finding(Level::ok, "with the desktop, at login", "");
    if (facts.unitIsEnabled && (facts.lingers || facts.hasDesktop)) {
        return finding(Level::ok, "by systemd", "");
    }
    if (facts.unitIsEnabled) {
        return finding(Level::warning, "by systemd, but only while this user is logged in",
                       "To start it with the computer: loginctl enable-linger");
    }
    return finding(Level::warning,
                   "by hand only: after a restart phones do not reach this computer",
                   facts.hasDesktop ? "Switch on the start at login in the agent's panel."
                                    : "systemctl --user enable --now " + std::string(unitName) +
                                          " && loginctl enable-linger");
}

}  // namespace orvel
