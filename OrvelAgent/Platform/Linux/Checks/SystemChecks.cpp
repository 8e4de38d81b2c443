#include "OrvelAgent/Platform/SystemChecks.h"

#include "OrvelAgent/Platform/Linux/Checks/AnnouncementCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/DesktopCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/DisplayCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/FirewallCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/SoundCheck.h"
#include "OrvelAgent/Platform/Linux/Checks/StateCheck.h"

namespace orvel {

std::vector<Check> systemChecks(const Examined& examined) {
    // Of what one service may take; a check asks few of them.
    constexpr auto limit = std::chrono::milliseconds(2000),
                   busLimit = std::chrono::milliseconds(700);
    return {
        Check::of("display", [] { return displayFindings(DisplayFacts::look()); }),
        Check::of("sound", [=] { return soundFindings(SoundFacts::look(limit)); }),
        Check::of("desktop",
                  [=] { return desktopFindings(DesktopFacts::look(examined.state, busLimit)); }),
        Check::of("network name",
                  [=] {
                      const auto port =
                          examined.runs && examined.announced ? examined.port : std::uint16_t{0};
                      return announcementFindings(AnnouncementFacts::look(port, limit), examined);
                  }),
        Check::of("firewall",
                  [=] {
                      return firewallFindings(
                          FirewallFacts::look(FirewallFacts::ofSystem(), examined.port),
                          examined.port);
                  }),
        Check::of("state", [=] { return stateFindings(StateFacts::look(examined.state)); }),
        Check::of("start", [=] { return startFindings(StartFacts::look(examined.state)); }),
    };
}

}  // namespace orvel
