#pragma once

#include <memory>
#include <string>

#include "OrvelKit/Base/SecretStore.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/HttpClient.h"
#include "OrvelKit/Relay/IceServerProvider.h"
#include "OrvelKit/Relay/OrvelCloud.h"

namespace orvel::phone {

// This phone's anonymous account at a relay project, and the ICE servers that the project gives it.
// The account is kept in the state folder, one for each project, so that not every command signs up
// anew. Made on any thread, and outlives the queue that it is given; servers() and stop() are on
// it.
class RelayAccount {
public:
    RelayAccount(SerialQueue& queue, RelayProject project, std::string stateFolder);
    ~RelayAccount();

    // STUN servers at least.
    void servers(IceServerProvider::ServersHandler handler);

    // Drops what is under way; nothing is asked for any more.
    void stop();

private:
    class NoDefaults;
    class Files;
    class Requests;
    const std::unique_ptr<Defaults> defaults;
    const OrvelCloud cloud;
    const std::unique_ptr<SecretStore> files;
    const std::unique_ptr<Requests> requests;
    const std::shared_ptr<AnonymousAuth> auth;
    const std::shared_ptr<IceServerProvider> provider;
};

}  // namespace orvel::phone
