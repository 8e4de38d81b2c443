#pragma once

#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// Secrets of this user, addressed by service and account. Thread-safe; calls may block for as long
// as the system's store takes to answer.
class SecretStore {
public:
    struct Item {
        enum class Status {
            found,
            missing,    // the store answered: there is none
            unreadable  // locked, away, refused: there may be one
        } status;
        Bytes data;
    };

    virtual ~SecretStore() = default;
    virtual Item read(const std::string& service, const std::string& account) = 0;
    // False when it could not be stored; an existing item is left as it is and means false.
    virtual bool add(const std::string& service, const std::string& account, ByteView data) = 0;
    // Adds or replaces.
    virtual bool replace(const std::string& service, const std::string& account, ByteView data) = 0;
    virtual bool remove(const std::string& service, const std::string& account) = 0;
};

}  // namespace orvel
