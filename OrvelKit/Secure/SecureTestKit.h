#pragma once

#include <string_view>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/HexForTests.h"
#include "OrvelKit/Secure/Crypto.h"

namespace orvel {

inline Bytes copyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

inline PrivateKey privateKey(std::string_view raw) {
    return PrivateKey::fromRaw(hex(raw)).value();
}

// Every encoding of a u-coordinate on Curve25519 or its twist whose point has order 1, 2, 4 or 8;
// the top bit does not count, so each has a second form.
inline constexpr std::string_view smallOrderPoints[] = {
    "0000000000000000000000000000000000000000000000000000000000000000",
    "0100000000000000000000000000000000000000000000000000000000000000",
    "e0eb7a7c3b41b8ae1656e3faf19fc46ada098deb9c32b1fd866205165f49b800",
    "5f9c95bca3508c24b1d0b1559c83ef5b04445cc4581c8e86d8224eddd09f1157",
    "ecffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
    "edffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
    "eeffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
};

}  // namespace orvel
