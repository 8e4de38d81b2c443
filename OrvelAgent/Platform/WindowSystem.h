#pragma once

namespace orvel {

// Whether this process can show windows. Also sets what Qt has to know of this system, so it comes
// before the application object; once. May wait for the display server.
bool prepareWindowSystem();

}  // namespace orvel
