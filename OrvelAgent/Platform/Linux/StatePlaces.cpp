#include "OrvelAgent/Platform/Posix/StatePlaces.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace orvel {

namespace {

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

// The XDG base directory standard, which asks to ignore relative paths.
StatePlaces StatePlaces::ofUser() {
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
