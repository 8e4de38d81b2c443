#pragma once

#include <algorithm>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// Takes a fuzzer's input apart; beyond its end everything is zero and empty.
class Pieces {
public:
    explicit Pieces(ByteView input) : rest(input) {}
    bool isEmpty() const { return rest.empty(); }
    std::uint8_t byte() {
        if (rest.empty()) return 0;
        const auto value = rest[0];
        rest = rest.subspan(1);
        return value;
    }
    // A length byte, then as many bytes.
    ByteView piece() {
        const std::size_t length = std::min<std::size_t>(byte(), rest.size());
        const auto taken = rest.first(length);
        rest = rest.subspan(length);
        return taken;
    }

private:
    ByteView rest;
};

}  // namespace orvel
