#include "OrvelAgent/Platform/Memory.h"

#include <malloc.h>

namespace orvel {

void returnLargeBuffers() {
    // glibc's own threshold follows the largest buffer freed so far, up to 32 MiB: pictures would
    // soon lie between everything else.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
}

void releaseFreeMemory() {
    malloc_trim(0);
}

}  // namespace orvel
