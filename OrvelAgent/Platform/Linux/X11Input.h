#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/HeldKeys.h"
#include "OrvelAgent/Platform/Linux/InputBacklog.h"
#include "OrvelAgent/Platform/Linux/InputRecord.h"
#include "OrvelAgent/Platform/Linux/KeyRepeat.h"
#include "OrvelAgent/Platform/Linux/PointerWatch.h"
#include "OrvelAgent/Platform/Linux/ProgramPing.h"
#include "OrvelAgent/Platform/Linux/TextTyper.h"
#include "OrvelAgent/Platform/Linux/VirtualDevices.h"
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

    // Carries it out. What is returned: when to come again with the same event, of which a text
    // then has lost what was taken over; nullopt: done.
    std::optional<MonotonicTime> post(InputEvent& event, MonotonicTime now);
    // Sends what post() left to be sent.
    void flush();

    // Lets go of everything that is held.
    void releaseAll();
    // When keys are to be given back that text was typed with; nullopt: there are none.
    std::optional<MonotonicTime> tidyDue() const;
    void tidy();
    // What was released and given back is done when this returns.
    void finish();

    // Reads the server's events.
    struct News {
        bool toLookAt = false;   // see look()
        bool canTypeOn = false;  // what post() waits for has come before its time
    };
    News readEvents();
    // The pointer and, if they changed, the monitors. True: look again after
    // PointerWatch::interval.
    bool look();

    int descriptor() const { return xcb_get_file_descriptor(x11.get()); }
    PointerWatch::Place pointer() const { return watch.place(); }
    const std::vector<X11Monitor>& monitors() const { return known; }

private:
    void recover();
    void writeRecord();
    void motion(EventPoster::Point to);
    void button(const InputEvent::Button& event);
    void scroll(const InputEvent::Scroll& event);
    void click(std::uint8_t logicalButton, int times) const;
    std::uint8_t physical(std::uint8_t logicalButton) const;
    void key(const InputEvent::Key& event);
    std::vector<ModifierKey> modifiersFor(std::uint32_t flags, bool commandIsSuper);
    std::optional<KeyCodeX> codeFor(const InputEvent::Key& event);
    void fake(std::uint8_t type, std::uint8_t detail) const;
    void readButtonMap();

    X11Connection x11;
    X11MonitorEvents monitorEvents;
    PointerWatch watch;
    VirtualDevices devices;
    InputRecord record;
    KeyRepeat repeat;
    X11Keyboard keyboard;
    HeldKeys keys;
    ProgramPing ping;
    TextTyper typer;
    Duration keepLent;                                   // after the last use
    std::array<std::optional<std::uint8_t>, 2> buttons;  // left and right, while they are held
    std::vector<std::uint8_t> buttonMap;  // what each button means to programs, from the first on
    WheelSteps wheel;
    std::vector<X11Monitor> known;
    bool areMonitorsOld = true;
};

}  // namespace orvel
