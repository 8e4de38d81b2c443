#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Power.h"

namespace orvel {

// Records. The calls may come from any thread; the fields are for a test whose queues are quiet.
class FakePower : public Power {
public:
    bool refuses = false;
    std::map<std::uint32_t, std::string> held;  // assertion → reason
    int assertionsMade = 0;
    int unknownReleases = 0;
    std::vector<std::string> activities;  // reasons

    std::uint32_t preventIdleSleep(const std::string& reason) override {
        const std::lock_guard guard(lock);
        if (refuses) return 0;
        const auto assertion = static_cast<std::uint32_t>(++assertionsMade);
        held[assertion] = reason;
        return assertion;
    }
    void release(std::uint32_t assertion) override {
        const std::lock_guard guard(lock);
        if (held.erase(assertion) == 0) ++unknownReleases;
    }
    void declareUserActivity(const std::string& reason) override {
        const std::lock_guard guard(lock);
        activities.push_back(reason);
    }

private:
    std::mutex lock;
};

}  // namespace orvel
