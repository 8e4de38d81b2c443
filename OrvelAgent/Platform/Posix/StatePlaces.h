#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/StateStores.h"

namespace orvel {

// Where each piece of state lies, by absolute path: in the user's own places, or all of it below
// the one folder of the location.
struct StatePlaces {
    // Both empty where the system has a store of its own for it.
    std::string defaultsFile;
    std::string secretsFolder;
    // Which secret store was chosen; nullopt: it is always the folder.
    std::optional<std::string> secretChoiceFile;
    // The first that can be made counts.
    std::vector<std::string> lockFolders;
    std::string cacheFolder;  // what can be had again

    static StatePlaces of(const StateLocation& location);
    static StatePlaces ofUser();  // as this system has them
};

// HOME, or what the user database says.
std::string homeFolderOfUser();

// The value of an environment variable that is an absolute path.
std::optional<std::string> absoluteFolder(const char* variable);

}  // namespace orvel
