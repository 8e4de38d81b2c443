#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OrvelAgent/Platform/Linux/DesktopEntry.h"
#include "OrvelAgent/Platform/Linux/WindowIdentity.h"

namespace orvel {

// The applications that are installed, as far as that is needed to tell whose a window is. Reads
// files when first asked and when folders have changed; not to be asked where waiting for a disk
// matters.
class DesktopEntries {
public:
    // The files of the first folder go before those of the next with the same id. `languages` as
    // from messageLanguages().
    DesktopEntries(std::vector<std::string> folders, std::vector<std::string> languages);

    // The application of such a window; nullptr: no file tells. Valid until the next call.
    const DesktopEntry* find(const WindowIdentity& window);

private:
    using Folder = std::filesystem::path;
    using Time = std::filesystem::file_time_type;
    // By a name in lower case.
    using Index = std::unordered_map<std::string, const DesktopEntry*>;

    bool isUpToDate() const;
    void read();
    void readFolder(const Folder& root, std::map<std::string, DesktopEntry>& found);
    void buildIndexes();
    const DesktopEntry* findByID(std::string_view fileOrID) const;
    const DesktopEntry* findByClass(const WindowIdentity& window) const;

    const std::vector<std::string> folders;
    const std::vector<std::string> languages;
    // Those read, with their subfolders; nullopt: it was not there.
    std::map<Folder, std::optional<Time>> changed;
    std::vector<DesktopEntry> entries;
    Index byID, byLastPart, byWMClass, byProgram;
};

// The folders where applications are installed, best first: from XDG_DATA_HOME and XDG_DATA_DIRS
// (XDG Base Directory Specification).
std::vector<std::string> applicationFolders();

// The name of a file without its folder and the ending ".desktop".
std::string_view desktopFileID(std::string_view file);

}  // namespace orvel
