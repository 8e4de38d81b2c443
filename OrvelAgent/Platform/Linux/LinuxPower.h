#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/Linux/Bus.h"
#include "OrvelAgent/Platform/Linux/Inhibitor.h"
#include "OrvelAgent/Platform/Power.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Keeps awake through the login manager and, since desktops have power managers of their own that
// do not ask it, through the desktop session as well; with neither, through what keeps the display
// lit. Every call returns at once; what it asks for happens on "orvel.power". An assertion is
// therefore never refused here: as long as it is wanted and nobody holds it (no such service yet,
// or one that was started anew), it is asked for again.
class LinuxPower : public Power {
public:
    explicit LinuxPower(Duration recheckEvery = std::chrono::minutes(1));
    ~LinuxPower() override;

    std::uint32_t preventIdleSleep(const std::string& reason) override;
    void release(std::uint32_t assertion) override;
    void declareUserActivity(const std::string& reason) override;

private:
    struct Assertion {
        std::string reason;
        std::unique_ptr<Inhibitor> login, session, display;
        bool toldMissing = false;
    };

    void holdAll() RUNS_ON(queue);
    void hold(Assertion& assertion) RUNS_ON(queue);
    bool openSessionBus() RUNS_ON(queue);
    void wakeDisplay() RUNS_ON(queue);

    const Duration recheckInterval;
    std::atomic<std::uint32_t> lastAssertion{0};
    Bus systemBus OWNED_BY(queue);
    Bus sessionBus OWNED_BY(queue);
    std::map<std::uint32_t, Assertion> assertions OWNED_BY(queue);
    Timer recheck OWNED_BY(queue);
    SerialQueue queue{"orvel.power"};  // last: its thread ends before the fields do
};

}  // namespace orvel
