#pragma once

#include <cstddef>

namespace orvel {

// Counts what operator new hands out in this program. Each copy needs memory to go to, so the
// bytes allocated for a frame bound how often its payload can have been copied.
struct Allocations {
    std::size_t calls = 0;
    std::size_t bytes = 0;

    static Allocations soFar();
    Allocations operator-(const Allocations& earlier) const {
        return {calls - earlier.calls, bytes - earlier.bytes};
    }
};

}  // namespace orvel
