#include "OrvelAgent/Platform/StateStores.h"

#include "OrvelAgent/Platform/Linux/ChosenSecretStore.h"
#include "OrvelAgent/Platform/Posix/FileDefaults.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

StateStores StateStores::create(const StateLocation& location) {
    const auto places = StatePlaces::of(location);
    StateStores stores;
    stores.defaults = std::make_unique<FileDefaults>(places.defaultsFile);
    if (places.secretChoiceFile) {
        stores.secrets =
            std::make_unique<ChosenSecretStore>(*places.secretChoiceFile, places.secretsFolder);
    } else {
        stores.secrets = std::make_unique<FileSecretStore>(places.secretsFolder);
    }
    return stores;
}

}  // namespace orvel
