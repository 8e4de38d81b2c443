#pragma once

#include <memory>
#include <string>

#include "OrvelAgent/Platform/Linux/Bus.h"

namespace orvel {

// One way of keeping the computer from sleeping when idle, in force as long as this exists.
class Inhibitor {
public:
    virtual ~Inhibitor() = default;
    // False once whoever was asked has gone, and forgotten it.
    virtual bool holds() = 0;
};

// Each asks one keeper of sleep, and answers null when that is not there or refuses. The bus
// outlives the inhibitor; losing its connection ends it.

// The system's login manager.
std::unique_ptr<Inhibitor> inhibitByLogin(Bus& systemBus, const std::string& reason);
// The desktop session: the first of its session manager, its power manager and the portal.
std::unique_ptr<Inhibitor> inhibitBySession(Bus& sessionBus, const std::string& reason);

// These keep the display lit, too, which is more than is asked for: last resorts.
std::unique_ptr<Inhibitor> inhibitByScreenSaver(Bus& sessionBus, const std::string& reason);
std::unique_ptr<Inhibitor> inhibitByXServer();

}  // namespace orvel
