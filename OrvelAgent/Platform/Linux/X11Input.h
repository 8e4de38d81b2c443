#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/HeldKeys.h"
#include "OrvelAgent/Platform/Linux/InputBacklog.h"
#include "OrvelAgent/Platform/Linux/PointerWatch.h"
#include "OrvelAgent/Platform/Linux/WheelSteps.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/X11Keyboard.h"
#include "OrvelAgent/Platform/Linux/X11Monitors.h"

namespace orvel {

// Posts events to one X server through XTEST, and knows where its pointer and monitors are, for as
// long as the connection lasts. Belongs to one thread; everything may wait for the server and throw
// X11Failure: then the connection is lost and this object of no more use.
class X11Input {
public:
    // `display` as in $DISPLAY; empty stands for what that says.
    explicit X11Input(const std::string& display);

    // Carries it out. What is returned: come again with the same event after that time (which then
    // holds what is left of it); nullopt: done.
    std::optional<Duration> post(InputEvent& event);
    // Sends what post() left to be sent.
    void flush() const;
    // Lets go of everything that is held. Returns when the server has done so.
    void end();

    // Reads the server's events. True: something is to be looked at, see look().
    bool readEvents();
    // The pointer and, if they changed, the monitors. True: look again after
    // PointerWatch::interval.
    bool look();

    int descriptor() const { return xcb_get_file_descriptor(x11.get()); }
    PointerWatch::Place pointer() const { return watch.place(); }
    const std::vector<X11Monitor>& monitors() const { return known; }

private:
    void motion(EventPoster::Point to);
    void button(const InputEvent::Button& event);
    void scroll(const InputEvent::Scroll& event);
    void click(std::uint8_t physicalButton, int times) const;
    void key(const InputEvent::Key& event);
    void releaseAll();
    std::vector<ModifierKey> modifiersFor(std::uint32_t flags, bool commandIsSuper);
    std::optional<KeyCodeX> codeFor(const InputEvent::Key& event);
    void fake(std::uint8_t type, std::uint8_t detail) const;

    X11Connection x11;
    PointerWatch watch;
    X11Keyboard keyboard;
    HeldKeys keys;
    std::vector<std::uint8_t> buttons;  // that are held
    WheelSteps wheel;
    std::uint8_t layoutEvent = 0;  // RandR's first; 0: none
    std::vector<X11Monitor> known;
    bool areMonitorsOld = true;
};

}  // namespace orvel
