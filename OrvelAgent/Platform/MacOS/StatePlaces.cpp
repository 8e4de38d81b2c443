#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

// The user defaults and the keychain keep the state; files of ours are only what running agents
// need, in the folder that applications have for it.
StatePlaces StatePlaces::ofUser() {
    StatePlaces places;
    places.lockFolders.push_back(homeFolderOfUser() +
                                 "/Library/Application Support/com.halverton.orvel.agent");
    return places;
}

}  // namespace orvel
