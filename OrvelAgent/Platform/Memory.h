#pragma once

namespace orvel {

// Gives memory that the program has freed back to the system, as far as the allocator keeps it for
// later. Any thread; takes some milliseconds, in which others' allocations may wait.
void releaseFreeMemory();

}  // namespace orvel
