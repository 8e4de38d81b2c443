#include "Benchmarks/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

// Of one thread: what others allocate is not this benchmark's.
thread_local orvel::Allocations counted;

}  // namespace

namespace orvel {

Allocations Allocations::soFar() {
    return counted;
}

}  // namespace orvel

// The library's other forms of new and delete end in these.
void* operator new(std::size_t size) {
    counted.calls += 1;
    counted.bytes += size;
    if (void* memory = std::malloc(size ? size : 1)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
