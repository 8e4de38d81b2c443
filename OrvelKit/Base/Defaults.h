#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// The user-defaults store: small settings by name, shared with other processes of the same user. A
// read sees what others have written; a write changes its own key only and is durable when it
// returns. A missing key and a value of another type both read as nullopt, so that foreign content
// counts as empty. Thread-safe.
class Defaults {
public:
    virtual ~Defaults() = default;

    virtual std::optional<bool> boolean(const std::string& key) = 0;
    virtual std::optional<std::string> string(const std::string& key) = 0;
    virtual std::optional<std::vector<std::string>> strings(const std::string& key) = 0;
    virtual std::optional<std::map<std::string, std::string>> stringDictionary(
        const std::string& key) = 0;
    virtual std::optional<std::map<std::string, Bytes>> dataDictionary(const std::string& key) = 0;
    virtual std::optional<std::map<std::string, WallTime>> dateDictionary(
        const std::string& key) = 0;

    // False when it could not be written (logged by the store); what was there stays.
    virtual bool set(const std::string& key, bool value) = 0;
    virtual bool set(const std::string& key, const std::string& value) = 0;
    virtual bool set(const std::string& key, const std::vector<std::string>& value) = 0;
    virtual bool set(const std::string& key, const std::map<std::string, std::string>& value) = 0;
    virtual bool set(const std::string& key, const std::map<std::string, Bytes>& value) = 0;
    virtual bool set(const std::string& key, const std::map<std::string, WallTime>& value) = 0;
    bool set(const std::string& key, const char* value) { return set(key, std::string(value)); }
    virtual bool remove(const std::string& key) = 0;
};

}  // namespace orvel
