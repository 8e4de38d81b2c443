#pragma once

namespace orvel {

// Lets large buffers go back to the system as soon as they are freed, instead of leaving holes that
// grow with each session. Once, before there are other threads.
void returnLargeBuffers();

// Gives memory that the program has freed back to the system, as far as the allocator keeps it for
// later. Any thread; takes some milliseconds, in which others' allocations may wait.
void releaseFreeMemory();

}  // namespace orvel
