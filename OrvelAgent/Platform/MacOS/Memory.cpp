#include "OrvelAgent/Platform/Memory.h"

#include <malloc/malloc.h>

namespace orvel {

// The system's allocator keeps large buffers apart by itself and has no threshold to set.
void returnLargeBuffers() {}

// Of every zone, as much as there is.
void releaseFreeMemory() {
    malloc_zone_pressure_relief(nullptr, 0);
}

}  // namespace orvel
