#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvelKit/Base/Defaults.h"

namespace orvel {

// User defaults that live as long as this object. The calls may come from any thread; the fields
// are for a test whose queues are quiet.
class FakeDefaults : public Defaults {
public:
    using Value = std::variant<bool, std::string, std::vector<std::string>,
                               std::map<std::string, std::string>, std::map<std::string, Bytes>,
                               std::map<std::string, WallTime>>;
    std::map<std::string, Value> values;
    bool refusesWrites = false;
    std::vector<std::string> written;  // keys of successful set() and remove() calls, in order

    std::optional<bool> boolean(const std::string& key) override { return read<bool>(key); }
    std::optional<std::string> string(const std::string& key) override {
        return read<std::string>(key);
    }
    std::optional<std::vector<std::string>> strings(const std::string& key) override {
        return read<std::vector<std::string>>(key);
    }
    std::optional<std::map<std::string, std::string>> stringDictionary(
        const std::string& key) override {
        return read<std::map<std::string, std::string>>(key);
    }
    std::optional<std::map<std::string, Bytes>> dataDictionary(const std::string& key) override {
        return read<std::map<std::string, Bytes>>(key);
    }
    std::optional<std::map<std::string, WallTime>> dateDictionary(const std::string& key) override {
        return read<std::map<std::string, WallTime>>(key);
    }

    using Defaults::set;
    bool set(const std::string& key, bool value) override { return write(key, value); }
    bool set(const std::string& key, const std::string& value) override {
        return write(key, value);
    }
    bool set(const std::string& key, const std::vector<std::string>& value) override {
        return write(key, value);
    }
    bool set(const std::string& key, const std::map<std::string, std::string>& value) override {
        return write(key, value);
    }
    bool set(const std::string& key, const std::map<std::string, Bytes>& value) override {
        return write(key, value);
    }
    bool set(const std::string& key, const std::map<std::string, WallTime>& value) override {
        return write(key, value);
    }
    bool remove(const std::string& key) override { return write(key, std::nullopt); }

private:
    template <class T>
    std::optional<T> read(const std::string& key) {
        const std::lock_guard guard(lock);
        const auto found = values.find(key);
        const T* value = found == values.end() ? nullptr : std::get_if<T>(&found->second);
        return value ? std::optional(*value) : std::nullopt;
    }
    bool write(const std::string& key, std::optional<Value> value) {
        const std::lock_guard guard(lock);
        if (refusesWrites) return false;
        if (value) {
            values.insert_or_assign(key, *std::move(value));
        } else {
            values.erase(key);
        }
        written.push_back(key);
        return true;
    }

    std::mutex lock;
};

}  // namespace orvel
