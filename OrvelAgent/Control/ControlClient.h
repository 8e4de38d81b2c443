#pragma once

#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Platform/StateStores.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// A connection to the agent that runs on a state, for the lines that ControlServer.h describes.
// Belongs to one thread, which waits in the calls.
class ControlClient {
public:
    // Null when no agent of this user runs there.
    static std::unique_ptr<ControlClient> open(const StateLocation& location);
    // Takes the descriptor over, a connected one that does not block.
    explicit ControlClient(int connected) : descriptor(connected) {}
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    // False when the agent has gone, or does not take it within the limit.
    bool send(const std::string& line, Duration limit = std::chrono::seconds(5));
    // The next line without its end; nullopt: the agent has gone, or none came within the limit.
    std::optional<std::string> nextLine(Duration limit = std::chrono::seconds(10));
    bool hasEnded() const { return ended; }

private:
    bool wait(short event, MonotonicTime deadline) const;

    const int descriptor;
    std::string pending;
    bool ended = false;
};

}  // namespace orvel
