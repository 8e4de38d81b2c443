#include "OrvelAgent/Platform/Linux/StatePlaces.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>

namespace orvel {

namespace {

// The XDG base directory standard asks to ignore relative paths.
std::optional<std::string> absoluteFolder(const char* variable) {
    const char* value = std::getenv(variable);
    if (!value || value[0] != '/') return std::nullopt;
    return value;
}

// The session's own folder, which is there already or is not to be used. Who came in by another way
// than a login (cron, sudo) lacks the variable, but must find the same agent.
std::optional<std::string> runtimeFolder() {
    const bool isSaid = std::getenv("XDG_RUNTIME_DIR") != nullptr;
    const auto folder =
        isSaid ? absoluteFolder("XDG_RUNTIME_DIR") : "/run/user/" + std::to_string(getuid());
    struct stat found;
    if (!folder || stat(folder->c_str(), &found) != 0 || !S_ISDIR(found.st_mode)) return {};
    if (!isSaid && found.st_uid != getuid()) return {};
    return folder;
}

}  // namespace

std::string homeFolderOfUser() {
    if (const auto home = absoluteFolder("HOME")) return *home;
    std::array<char, 16384> buffer;
    struct passwd entry;
    struct passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found && found->pw_dir && found->pw_dir[0] == '/' ? found->pw_dir : "/nonexistent";
}

StatePlaces StatePlaces::of(const StateLocation& location) {
    if (location.folder) {
        std::error_code failed;
        auto folder = std::filesystem::absolute(*location.folder, failed).lexically_normal();
        if (failed) folder = *location.folder;
        return {
            folder / "defaults.json", folder / "secrets", std::nullopt, {folder}, folder / "cache"};
    }
    const std::string home = homeFolderOfUser();
    const auto config = absoluteFolder("XDG_CONFIG_HOME").value_or(home + "/.config") + "/orvel";
    const auto data = absoluteFolder("XDG_DATA_HOME").value_or(home + "/.local/share") + "/orvel";
    const auto cache = absoluteFolder("XDG_CACHE_HOME").value_or(home + "/.cache") + "/orvel";
    StatePlaces places{
        config + "/defaults.json", data + "/secrets", data + "/secret-store", {}, cache};
    if (const auto runtime = runtimeFolder()) places.lockFolders.push_back(*runtime + "/orvel");
    places.lockFolders.push_back(config);
    return places;
}

}  // namespace orvel
