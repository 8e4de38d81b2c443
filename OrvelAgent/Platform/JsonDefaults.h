#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OrvelKit/Base/Defaults.h"

namespace orvel {

// User defaults that can also be read and written as JSON, for people and scripts. Bytes are base64
// strings there and dates seconds since 2001.
class JsonDefaults : public Defaults {
public:
    // Compact.
    virtual std::optional<std::string> json(const std::string& key) = 0;
    // Refuses what is no JSON, is nested too deeply, or has no place in this store.
    virtual bool setJson(const std::string& key, std::string_view value) = 0;
    // The whole store, an object; nullopt when it cannot be read.
    virtual std::optional<std::string> document() = 0;
};

}  // namespace orvel
