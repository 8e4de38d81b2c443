#pragma once

#include <map>
#include <mutex>
#include <utility>

#include "OrvelKit/Base/SecretStore.h"

namespace orvel {

// Secrets that live as long as this object: for tests, and for a system without a store.
class MemorySecretStore : public SecretStore {
public:
    Item read(const std::string& service, const std::string& account) override {
        const std::lock_guard guard(lock);
        const auto item = items.find({service, account});
        if (item == items.end()) return {Item::Status::missing, {}};
        return {Item::Status::found, item->second};
    }
    bool add(const std::string& service, const std::string& account, ByteView data) override {
        const std::lock_guard guard(lock);
        return items.try_emplace({service, account}, data.begin(), data.end()).second;
    }
    bool replace(const std::string& service, const std::string& account, ByteView data) override {
        const std::lock_guard guard(lock);
        items.insert_or_assign({service, account}, Bytes(data.begin(), data.end()));
        return true;
    }
    bool remove(const std::string& service, const std::string& account) override {
        const std::lock_guard guard(lock);
        return items.erase({service, account}) == 1;
    }

private:
    std::mutex lock;
    std::map<std::pair<std::string, std::string>, Bytes> items;
};

}  // namespace orvel
