#include "OrvelAgent/Platform/Linux/XdgLoginService.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

namespace {

constexpr std::size_t maxBytes = 64 * 1024;

void logFailure(int error) {
    if (error == 0) return;
    std::fprintf(stderr, "orvel: the autostart entry cannot be changed: %s\n",
                 describeError(error).c_str());
}

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// Of this process; a package's is found by its name, wherever the next version puts it.
std::string ownProgram() {
    std::error_code failed;
    std::string path = std::filesystem::read_symlink("/proc/self/exe", failed);
    // That is what the system calls it once a newer file has taken its place.
    constexpr std::string_view replaced = " (deleted)";
    if (path.ends_with(replaced) && access(path.c_str(), F_OK) != 0) {
        path.resize(path.size() - replaced.size());
    }
    const std::filesystem::path file(path);
    return file.parent_path() == "/usr/bin" ? file.filename().string() : path;
}

}  // namespace

std::unique_ptr<LoginService> LoginService::create() {
    return std::make_unique<XdgLoginService>();
}

XdgLoginService::Places XdgLoginService::Places::ofUser() {
    Places places;
    // The XDG base directory standard asks to ignore relative paths.
    const std::string config = variable("XDG_CONFIG_HOME");
    places.userFolder =
        (config.starts_with('/') ? config : homeFolderOfUser() + "/.config") + "/autostart";
    std::string list = variable("XDG_CONFIG_DIRS");
    if (list.empty()) list = "/etc/xdg";
    while (!list.empty()) {
        const std::string folder = list.substr(0, list.find(':'));
        if (folder.starts_with('/')) places.systemFolders.push_back(folder + "/autostart");
        list.erase(0, folder.size() + 1);
    }
    places.program = ownProgram();
    places.desktop = variable("XDG_CURRENT_DESKTOP");
    return places;
}

XdgLoginService::XdgLoginService(Places where) : places(std::move(where)) {}

bool XdgLoginService::isRegistered() {
    const Found user = read(places.userFolder);
    return user.exists ? user.starts : readSystem().starts;
}

void XdgLoginService::registerProgram() {
    if (isRegistered()) return;
    Found user = read(places.userFolder);
    if (user.error != 0) return logFailure(user.error);
    if (!g_utf8_validate(places.program.c_str(), -1, nullptr)) return logFailure(EILSEQ);
    if (user.entry) {
        user.entry->switchOn(places.program, places.desktop);
        return logFailure(write(user.entry->text()));
    }
    if (user.exists) {
        if (const int error = keepAside(); error != 0) return logFailure(error);
    }
    logFailure(write(ownEntry().text()));
}

void XdgLoginService::unregisterProgram() {
    if (!isRegistered()) return;
    Found user = read(places.userFolder);
    const bool isOurs = user.exists && user.text == ownEntry().text();
    if (isOurs && !readSystem().starts) {
        return logFailure(unlink(userFile().c_str()) == 0 ? 0 : errno);
    }
    AutostartEntry entry = user.entry ? *std::move(user.entry) : ownEntry();
    entry.switchOff();
    logFailure(write(entry.text()));
}

XdgLoginService::Found XdgLoginService::read(const std::string& folder) const {
    Found found;
    const std::string path = folder + "/" + fileName;
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        const int error = errno;
        std::error_code failed;
        found.exists = std::filesystem::symlink_status(path, failed).type() !=
                       std::filesystem::file_type::not_found;
        if (found.exists) found.error = error;
        return found;
    }
    found.exists = true;
    Bytes data;
    found.error = readAll(file.get(), maxBytes, data);
    if (found.error == EFBIG) {  // whatever that is, it is no entry
        found.error = 0;
        return found;
    }
    found.text.assign(data.begin(), data.end());
    found.entry = AutostartEntry::parse(found.text);
    found.starts = found.entry && found.entry->starts(places.desktop);
    return found;
}

XdgLoginService::Found XdgLoginService::readSystem() const {
    for (const std::string& folder : places.systemFolders) {
        if (Found found = read(folder); found.exists) return found;
    }
    return {};
}

AutostartEntry XdgLoginService::ownEntry() const {
    return AutostartEntry::make(places.program, "Orvel Agent");
}

int XdgLoginService::write(const std::string& text) const {
    if (const int error = makeFolder(places.userFolder); error != 0) return error;
    // A link stays one: it leads to where the user keeps such files.
    std::filesystem::path target(userFile());
    std::error_code failed;
    if (std::filesystem::is_symlink(target, failed)) {
        target = std::filesystem::canonical(target, failed);
        if (failed) return failed.value();
    }
    const FileDescriptor folder(
        open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return errno;
    const Bytes data(text.begin(), text.end());
    if (const int error = replaceFile(folder.get(), target.filename(), data); error != 0) {
        return error;
    }
    return syncFolder(folder.get());
}

int XdgLoginService::keepAside() const {
    std::string other;
    for (int number = 1; number < 100; ++number) {
        other = userFile() + ".kept" + std::to_string(number);
        if (renameat2(AT_FDCWD, userFile().c_str(), AT_FDCWD, other.c_str(), RENAME_NOREPLACE) ==
            0) {
            std::fputs("orvel: the autostart entry was none; it was kept aside\n", stderr);
            return 0;
        }
        if (errno != EEXIST) return errno;
    }
    return EEXIST;
}

}  // namespace orvel
