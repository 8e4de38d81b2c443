#pragma once

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Base/SecretStore.h"

namespace orvel {

// The desktop's secret store (the Secret Service), reached over the session bus. Items carry their
// service and account as attributes and their data as base64. Nothing here ever makes a prompt
// appear: what is locked is unreadable and cannot be changed. No call takes longer than the limit;
// a service that has not answered by then is unreadable.
class LibsecretStore : public SecretStore {
public:
    explicit LibsecretStore(Duration answerLimit = std::chrono::seconds(5));

    // Whether there is a service that would store a new item now, unlocked and without asking.
    bool answers();

    Item read(const std::string& service, const std::string& account) override;
    bool add(const std::string& service, const std::string& account, ByteView data) override;
    bool replace(const std::string& service, const std::string& account, ByteView data) override;
    bool remove(const std::string& service, const std::string& account) override;

private:
    const Duration limit;
};

}  // namespace orvel
