#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelKit/Base/Bytes.h"

namespace orvel {

struct X11Monitor {
    // The same for as long as a monitor is plugged into the same connector, also after a restart.
    std::uint32_t id = 0;   // not 0; no two monitors have the same
    std::string connector;  // RandR's name of it, such as "HDMI-1"; empty without RandR 1.5
    std::string name;       // for people: the model, else the connector; may be empty
    Rect area;              // of the root window's pixels; never empty
    bool isMain = false;    // exactly one is
};

// The monitors that show something now; without RandR 1.5 the whole screen is one. Throws
// X11Failure.
std::vector<X11Monitor> readMonitors(const X11Connection& x11);

// Which events tell that the monitors may have changed.
class X11MonitorEvents {
public:
    // Asks for them; sent with the next flush. Without RandR there are none.
    explicit X11MonitorEvents(const X11Connection& x11);
    bool contain(std::uint8_t eventType) const;  // without the bit for events that were sent

private:
    std::uint8_t first = 0;  // of RandR's; 0: none
};

// From here on: what readMonitors() consists of.

// The model's name in a monitor's identification data (EDID); empty if there is none.
std::string modelName(ByteView edid);
// Sets the ids from the connectors, and makes equal names differ.
void identify(std::vector<X11Monitor>& monitors);

}  // namespace orvel
