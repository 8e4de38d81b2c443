#pragma once

#include <cstdint>
#include <vector>

#include "OrvelAgent/Platform/Linux/KeyLayout.h"
#include "OrvelAgent/Platform/Linux/X11Connection.h"

namespace orvel {

// The virtual keyboard and pointer of an X server through which XTEST posts, and the keyboards
// beside them. Programs see the master keyboard only, which takes on the layout and the controls of
// whichever keyboard was used last. Every question waits for the server and throws X11Failure.
class VirtualDevices {
public:
    // `x11` outlives this.
    explicit VirtualDevices(const X11Connection& x11);

    // In XKB's numbers; where the server knows no single devices, the one that programs see.
    std::uint16_t keyboard() const { return keyboardNumber; }
    // The other keyboards of the same master.
    std::vector<std::uint16_t> otherKeyboards() const;
    // Whether the master has what the virtual keyboard has, because that was used last.
    bool isKeyboardInUse() const;

    // What is down on the virtual devices, by whichever program.
    std::vector<KeyCodeX> keysDown() const;
    std::vector<std::uint8_t> buttonsDown() const;

    // Whether a key that is held repeats.
    bool repeats(std::uint16_t keyboard) const;
    void setRepeats(std::uint16_t keyboard, bool wanted) const;

private:
    template <class Visit>
    void eachDevice(Visit visit) const;
    std::vector<std::uint8_t> down(std::uint16_t device, int inputClass) const;

    const X11Connection& x11;
    std::uint16_t master = 0;
    std::uint16_t keyboardNumber;
    std::uint16_t pointerNumber = 0;  // 0: not known
};

}  // namespace orvel
