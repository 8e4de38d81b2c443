#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace orvel {

// The virtual key codes that a phone sends in `key`: physical positions of the Mac's keyboard, the
// same under every layout. Process-wide constants, made on first use; any thread.
struct KeyCode {
    // F1 to F12, in this order.
    static constexpr std::array<std::uint16_t, 12> functionKeys = {122, 120, 99,  118, 96,  97,
                                                                   98,  100, 101, 109, 103, 111};

    // One character (UTF-8) to the key on which a US keyboard has it, and six Turkish letters to
    // the keys on which a Turkish Q keyboard has them: two characters may share a key.
    static const std::map<std::string, std::uint16_t>& characters();

    // USB HID keyboard usage to the key; a usage that is not there has none.
    static const std::map<int, std::uint16_t>& usages();

    KeyCode() = delete;
};

}  // namespace orvel
