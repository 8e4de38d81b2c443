#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// H.264 as a byte stream (ITU-T H.264, annex B: each NAL unit behind 00 00 00 01) from what a
// compression session puts out: parameter sets, and NAL units behind 4-byte lengths. Both forms
// are of the same length.
struct AnnexB {
    // Bytes that write() makes.
    static std::size_t length(const std::vector<ByteView>& parameterSets, ByteView units);
    // `to` has room for length(). False: the units' lengths do not add up, and what was written is
    // not to be used.
    static bool write(const std::vector<ByteView>& parameterSets, ByteView units, std::uint8_t* to);
    AnnexB() = delete;
};

}  // namespace orvel
