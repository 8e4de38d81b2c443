#include "OrvelAgent/Platform/Posix/StatePlaces.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>

namespace orvel {

std::optional<std::string> absoluteFolder(const char* variable) {
    const char* value = std::getenv(variable);
    if (!value || value[0] != '/') return std::nullopt;
    return value;
}

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
    return ofUser();
}

}  // namespace orvel
