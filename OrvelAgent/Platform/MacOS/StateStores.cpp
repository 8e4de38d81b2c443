#include "OrvelAgent/Platform/StateStores.h"

#include "OrvelAgent/Platform/MacOS/KeychainStore.h"
#include "OrvelAgent/Platform/MacOS/UserDefaults.h"
#include "OrvelAgent/Platform/Posix/FileDefaults.h"
#include "OrvelAgent/Platform/Posix/FileSecretStore.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

// The system's own stores, or files for a run beside them.
StateStores StateStores::create(const StateLocation& location) {
    StateStores stores;
    if (!location.folder) {
        stores.defaults = std::make_unique<UserDefaults>();
        stores.secrets = std::make_unique<KeychainStore>();
        return stores;
    }
    const auto places = StatePlaces::of(location);
    stores.defaults = std::make_unique<FileDefaults>(places.defaultsFile);
    stores.secrets = std::make_unique<FileSecretStore>(places.secretsFolder);
    return stores;
}

}  // namespace orvel
