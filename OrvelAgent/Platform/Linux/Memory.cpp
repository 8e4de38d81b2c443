#include "OrvelAgent/Platform/Memory.h"

#include <malloc.h>

namespace orvel {

void releaseFreeMemory() {
    malloc_trim(0);
}

}  // namespace orvel
