#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Called by libFuzzer with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace orvel {

// What must hold for every input; libFuzzer keeps the input that broke it.
inline void claim(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "claim broken: %s\n", what);
    std::abort();
}

}  // namespace orvel
