#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// The one place that knows byte order: everything on the wire is big-endian.
// The pointer must have room for, or hold, as many bytes as the name says.
inline void storeBE16(std::uint8_t* to, std::uint16_t value) {
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}
inline void storeBE32(std::uint8_t* to, std::uint32_t value) {
    storeBE16(to, static_cast<std::uint16_t>(value >> 16));
    storeBE16(to + 2, static_cast<std::uint16_t>(value));
}
inline void storeBE64(std::uint8_t* to, std::uint64_t value) {
    storeBE32(to, static_cast<std::uint32_t>(value >> 32));
    storeBE32(to + 4, static_cast<std::uint32_t>(value));
}
inline std::uint16_t loadBE16(const std::uint8_t* from) {
    return static_cast<std::uint16_t>(from[0] << 8 | from[1]);
}
inline std::uint32_t loadBE32(const std::uint8_t* from) {
    return static_cast<std::uint32_t>(loadBE16(from)) << 16 | loadBE16(from + 2);
}
inline std::uint64_t loadBE64(const std::uint8_t* from) {
    return static_cast<std::uint64_t>(loadBE32(from)) << 32 | loadBE32(from + 4);
}

inline ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
inline std::string_view textOf(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline void append(Bytes& to, ByteView bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// Standard base64 (RFC 4648, section 4) with padding.
std::string base64(ByteView bytes);

// Strict: the standard alphabet, padding required, no white space, unused bits zero; anything
// else is nullopt.
std::optional<Bytes> fromBase64(std::string_view text);

}  // namespace orvel
