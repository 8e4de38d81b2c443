#include "OrvelAgent/Platform/Linux/DesktopEntries.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

namespace orvel {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view ending = ".desktop";
constexpr std::uintmax_t maxFileSize = 1024 * 1024;
constexpr std::size_t maxFiles = 20'000;
constexpr int maxDepth = 4;

std::string lowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return result;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::optional<fs::file_time_type> timeOf(const fs::path& folder) {
    std::error_code error;
    const auto time = fs::last_write_time(folder, error);
    if (error) return std::nullopt;
    return time;
}

std::optional<std::string> textOf(const fs::path& file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > maxFileSize || error) {
        return std::nullopt;
    }
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

void splitPath(std::string_view list, std::vector<std::string>& folders) {
    while (!list.empty()) {
        const auto end = std::min(list.find(':'), list.size());
        // Relative ones are to be ignored.
        if (end > 0 && list[0] == '/') {
            folders.push_back(std::string(list.substr(0, end)) + "/applications");
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

}  // namespace

std::string_view desktopFileID(std::string_view file) {
    file.remove_prefix(file.rfind('/') + 1);
    if (endsWith(file, ending)) file.remove_suffix(ending.size());
    return file;
}

std::vector<std::string> applicationFolders() {
    std::vector<std::string> folders;
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    };
    const auto home = variable("HOME");
    const auto dataHome = variable("XDG_DATA_HOME");
    const auto dataFolders = variable("XDG_DATA_DIRS");
    splitPath(dataHome.empty() && !home.empty() ? home + "/.local/share" : dataHome, folders);
    splitPath(dataFolders.empty() ? "/usr/local/share:/usr/share" : dataFolders, folders);
    return folders;
}

DesktopEntries::DesktopEntries(std::vector<std::string> applicationFolders,
                               std::vector<std::string> userLanguages)
    : folders(std::move(applicationFolders)), languages(std::move(userLanguages)) {}

bool DesktopEntries::isUpToDate() const {
    return !changed.empty() && std::all_of(changed.begin(), changed.end(), [](const auto& each) {
        return timeOf(each.first) == each.second;
    });
}

void DesktopEntries::read() {
    changed.clear();
    std::map<std::string, DesktopEntry> found;
    for (const auto& folder : folders)
        readFolder(folder, found);
    entries.clear();
    for (auto& [id, entry] : found) {
        if (!entry.isDeleted) entries.push_back(std::move(entry));
    }
    buildIndexes();
}

void DesktopEntries::readFolder(const Folder& root, std::map<std::string, DesktopEntry>& found) {
    // Its time is taken before it is read: what changes meanwhile is seen the next time.
    changed[root] = timeOf(root);
    std::error_code error;
    fs::recursive_directory_iterator file(root, fs::directory_options::skip_permission_denied,
                                          error);
    for (; !error && file != fs::recursive_directory_iterator(); file.increment(error)) {
        std::error_code ignored;
        if (file->is_directory(ignored)) {
            changed[file->path()] = timeOf(file->path());
            if (file.depth() >= maxDepth) file.disable_recursion_pending();
            continue;
        }
        if (found.size() >= maxFiles) return;
        const std::string path = file->path().string();
        if (!endsWith(path, ending)) continue;
        // Of a file in a subfolder the id names both.
        std::string id = file->path().lexically_relative(root).string();
        id.resize(id.size() - ending.size());
        std::replace(id.begin(), id.end(), '/', '-');
        if (found.contains(id)) continue;
        const auto text = textOf(file->path());
        if (!text) continue;
        if (auto entry = DesktopEntry::parse(id, *text, languages)) {
            found.emplace(std::move(id), *std::move(entry));
        }
    }
}

void DesktopEntries::buildIndexes() {
    for (auto* index : {&byID, &byLastPart, &byWMClass, &byProgram})
        index->clear();
    // Those that menus show go before the others, which are helpers of theirs often.
    std::stable_partition(entries.begin(), entries.end(),
                          [](const auto& entry) { return entry.isShown; });
    for (const auto& entry : entries) {
        const auto id = lowerCase(entry.id);
        byID.emplace(id, &entry);
        byLastPart.emplace(id.substr(id.rfind('.') + 1), &entry);
        if (!entry.startupWMClass.empty()) {
            byWMClass.emplace(lowerCase(entry.startupWMClass), &entry);
        }
        if (entry.program.empty()) continue;
        const auto [known, isNew] = byProgram.emplace(lowerCase(entry.program), &entry);
        // Several applications by one program: it does not tell which.
        if (!isNew && entry.isShown) known->second = nullptr;
    }
}

const DesktopEntry* DesktopEntries::findByID(std::string_view fileOrID) const {
    const auto found = byID.find(lowerCase(desktopFileID(fileOrID)));
    return found == byID.end() ? nullptr : found->second;
}

const DesktopEntry* DesktopEntries::findByClass(const WindowIdentity& window) const {
    // Web applications differ in the instance only.
    const std::string names[] = {lowerCase(window.instance), lowerCase(window.className)};
    // From the name of a program; distributions put theirs before it.
    static constexpr std::string_view prefixes[] = {"",         "debian-", "gnome-",
                                                    "mozilla-", "fedora-", "kde-"};
    const auto look = [&](const Index& index, std::string_view prefix) -> const DesktopEntry* {
        for (const auto& name : names) {
            if (name.empty()) continue;
            auto found = index.find(std::string(prefix) + name);
            if (found == index.end() && name.find(' ') != std::string::npos) {
                std::string joined = name;
                std::replace(joined.begin(), joined.end(), ' ', '-');
                found = index.find(std::string(prefix) + joined);
            }
            if (found != index.end() && found->second) return found->second;
        }
        return nullptr;
    };
    if (const auto* entry = look(byWMClass, "")) return entry;
    for (const auto prefix : prefixes) {
        if (const auto* entry = look(byID, prefix)) return entry;
    }
    if (const auto* entry = look(byLastPart, "")) return entry;
    return look(byProgram, "");
}

const DesktopEntry* DesktopEntries::find(const WindowIdentity& window) {
    if (!isUpToDate()) read();
    for (const auto& id : {window.applicationID, window.desktopFile}) {
        if (id.empty()) continue;
        if (const auto* entry = findByID(id)) return entry;
    }
    return findByClass(window);
}

}  // namespace orvel
