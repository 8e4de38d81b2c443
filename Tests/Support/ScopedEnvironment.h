#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace orvel {

// Sets a variable of this process, or with nullopt removes it, and puts it back at the end. Only
// while no other thread reads the environment.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string variable, const std::optional<std::string>& value)
        : name(std::move(variable)) {
        if (const char* present = getenv(name.c_str())) before = present;
        put(value);
    }
    ~ScopedEnvironment() { put(before); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    void put(const std::optional<std::string>& value) {
        if (value) {
            setenv(name.c_str(), value->c_str(), 1);
        } else {
            unsetenv(name.c_str());
        }
    }

    const std::string name;
    std::optional<std::string> before;
};

}  // namespace orvel
