#pragma once

#include "OrvelKit/Base/SecretStore.h"

namespace orvel {

// Secrets as generic-password items of the user's login keychain, readable after the first unlock
// and on this computer only.
class KeychainStore final : public SecretStore {
public:
    Item read(const std::string& service, const std::string& account) override;
    bool add(const std::string& service, const std::string& account, ByteView data) override;
    bool replace(const std::string& service, const std::string& account, ByteView data) override;
    bool remove(const std::string& service, const std::string& account) override;
};

}  // namespace orvel
