#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "OrvelAgent/Platform/Linux/LibsecretStore.h"
#include "OrvelAgent/Platform/Posix/FileSecretStore.h"

namespace orvel {

// The desktop's secret store or the folder, whichever it was at first. The first call looks for a
// recorded choice. Without one it takes the folder when that has items or no desktop store answers,
// else the desktop's store. The choice is recorded as soon as an item is known to be there, and
// stays: a store that is locked or away later is a failed read and no reason to look elsewhere.
class ChosenSecretStore : public SecretStore {
public:
    ChosenSecretStore(std::string choiceFile, std::string folder);

    Item read(const std::string& service, const std::string& account) override;
    bool add(const std::string& service, const std::string& account, ByteView data) override;
    bool replace(const std::string& service, const std::string& account, ByteView data) override;
    bool remove(const std::string& service, const std::string& account) override;

private:
    SecretStore& chosen();
    void record();

    const std::string choiceFile;
    FileSecretStore files;
    LibsecretStore desktop;
    std::mutex mutex;  // guards the fields below
    SecretStore* choice = nullptr;
    bool isRecorded = false;
};

}  // namespace orvel
