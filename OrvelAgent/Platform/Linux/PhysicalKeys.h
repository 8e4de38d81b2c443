#pragma once

#include <cstdint>
#include <optional>

namespace orvel {

// A place on the keyboard in the two ways in which Linux names it.
struct PhysicalKey {
    // As in the X server's keycode table ("AC01" is where a US keyboard has the A): XKB's name,
    // which is the same whatever the codes are. At most four characters.
    const char* name;
    // As in linux/input-event-codes.h; the X keycode of a server with evdev's codes is 8 more.
    std::uint8_t evdev;
};

// The place of a key of the Mac's keyboard (its virtual code); nullopt: a PC has no such key.
std::optional<PhysicalKey> physicalKey(std::uint16_t virtualCode);

}  // namespace orvel
