#pragma once

#include "OrvelAgent/Platform/JsonDefaults.h"

namespace orvel {

// The user defaults of this application, as property lists: booleans, strings, arrays and
// dictionaries of strings, data and dates are themselves there, as other programs and `defaults`
// see them.
class UserDefaults final : public JsonDefaults {
public:
    std::optional<bool> boolean(const std::string& key) override;
    std::optional<std::string> string(const std::string& key) override;
    std::optional<std::vector<std::string>> strings(const std::string& key) override;
    std::optional<std::map<std::string, std::string>> stringDictionary(
        const std::string& key) override;
    std::optional<std::map<std::string, Bytes>> dataDictionary(const std::string& key) override;
    std::optional<std::map<std::string, WallTime>> dateDictionary(const std::string& key) override;

    using Defaults::set;
    bool set(const std::string& key, bool value) override;
    bool set(const std::string& key, const std::string& value) override;
    bool set(const std::string& key, const std::vector<std::string>& value) override;
    bool set(const std::string& key, const std::map<std::string, std::string>& value) override;
    bool set(const std::string& key, const std::map<std::string, Bytes>& value) override;
    bool set(const std::string& key, const std::map<std::string, WallTime>& value) override;
    bool remove(const std::string& key) override;

    std::optional<std::string> json(const std::string& key) override;
    // Makes no data and no dates: JSON cannot say them.
    bool setJson(const std::string& key, std::string_view value) override;
    std::optional<std::string> document() override;
};

}  // namespace orvel
