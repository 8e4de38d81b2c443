#pragma once

#include <string>

namespace orvel {

// The relay's topic on which a computer is reached: its agent listens there, and phones paired with
// it send there.
struct SignalTopic {
    static std::string name(const std::string& deviceID) { return "orvel-" + deviceID; }
    SignalTopic() = delete;
};

}  // namespace orvel
