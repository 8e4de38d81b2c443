#pragma once

#include <cstddef>
#include <string>

#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelKit/Base/SecretStore.h"

namespace orvel {

// Secrets as files for this user only, one a secret, in a folder for this user only. What is found
// there is returned as it is; links are not followed, and what is no file, or is larger than a
// secret can be, is unreadable. Only replace() and remove() touch an item that is there.
class FileSecretStore : public SecretStore {
public:
    static constexpr std::size_t maxSize = 64 * 1024;

    // An absolute path; made by the first item that is added.
    explicit FileSecretStore(std::string folder);

    // Whether anything was ever stored here.
    bool hasItems() const;

    Item read(const std::string& service, const std::string& account) override;
    bool add(const std::string& service, const std::string& account, ByteView data) override;
    bool replace(const std::string& service, const std::string& account, ByteView data) override;
    bool remove(const std::string& service, const std::string& account) override;

private:
    // Both: errno values, 0 for success.
    int openFolder(FileDescriptor& opened) const;
    int store(const std::string& name, ByteView data, bool mayReplace) const;
    static bool reported(int error);

    const std::string folder;
};

}  // namespace orvel
