#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "OrvelAgent/Desk/NameOrder.h"
#include "OrvelAgent/Platform/FileSystem.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

// What a phone hears when a folder or a file cannot be had, whatever the reason.
inline constexpr const char* accessRefusedText =
    "Bu konuma erişim izni yok. Mac'te Orvel Agent'a dosya erişimi izni ver.";

// Paths as phones write them: escaped (EscapedName), absolute or below the home folder.
struct PhonePath {
    // The system's path, without slashes at its end; absent or empty: `homeFolder`.
    static std::string resolve(const std::optional<std::string>& path,
                               const std::string& homeFolder);
    // Of a resolved path. "/" is the last component of "/".
    static std::string lastComponent(const std::string& path);
    static std::optional<std::string> parent(const std::string& path);  // nullopt: "/"
    PhonePath() = delete;
};

// Makes the listings that phones show. Its calls wait for the disk: one thread at a time.
class DirectoryLister {
public:
    DirectoryLister(FileSystem& files, std::string homeFolder);

    // Folders before files, each in their natural order, without hidden ones; packages are files.
    // A listing whose control is longer than `maxBytes` of JSON loses its last entries.
    DirectoryListing list(const std::optional<std::string>& path, std::size_t maxBytes);

private:
    FileSystem& files;
    const std::string homeFolder;
    std::optional<NameOrder> order;  // made for the first listing: it loads data
};

}  // namespace orvel
