#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/ServiceAdvertiser.h"

namespace orvel {

// Records. The calls may come from any thread; the fields are for a test whose queues are quiet.
class FakeServiceAdvertiser : public ServiceAdvertiser {
public:
    struct Service {
        std::string name;
        std::string type;
        std::uint16_t port;
        bool operator==(const Service&) const = default;
    };
    std::vector<Service> started;
    std::optional<Service> advertised;  // between start and stop

    void start(const std::string& name, const std::string& type, std::uint16_t port) override {
        const std::lock_guard guard(lock);
        advertised = started.emplace_back(Service{name, type, port});
    }
    void stop() override {
        const std::lock_guard guard(lock);
        advertised.reset();
    }

private:
    std::mutex lock;
};

}  // namespace orvel
