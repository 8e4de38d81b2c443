#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orvel {

// Keeping the computer awake and waking its display. Any thread; a call that has to wait for a
// system service does so elsewhere (an implementation may have a thread of its own), so that none
// holds the caller for longer than a few milliseconds.
class Power {
public:
    virtual ~Power() = default;
    // An assertion against idle sleep until it is released; 0 when the system refused. Held
    // assertions end with the process.
    virtual std::uint32_t preventIdleSleep(const std::string& reason) = 0;
    virtual void release(std::uint32_t assertion) = 0;
    // Counts as the user doing something: lights the display, resets idle timers.
    virtual void declareUserActivity(const std::string& reason) = 0;

    static std::unique_ptr<Power> create();
};

}  // namespace orvel
