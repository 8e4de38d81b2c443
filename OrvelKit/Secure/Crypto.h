#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// Thin wrappers around the library's primitives. A failure inside the library that no input can
// cause stops the process.

using Digest = std::array<std::uint8_t, 32>;

Digest sha256(ByteView bytes);

// HKDF with SHA-256 (RFC 5869): extract, then expand to `length` bytes.
Bytes hkdfSha256(ByteView inputKey, ByteView salt, ByteView info, std::size_t length);

// Compares in a time that does not depend on the content.
bool equalInConstantTime(ByteView a, ByteView b);

// Overwrites in a way that the compiler does not remove.
void wipe(std::span<std::uint8_t> secret);

// An X25519 (RFC 7748) private key. Copies share the immutable secret, which is wiped with the
// last one.
class PrivateKey {
public:
    static constexpr std::size_t length = 32;

    static PrivateKey generate();
    // nullopt unless 32 bytes.
    static std::optional<PrivateKey> fromRaw(ByteView raw);

    Bytes raw() const;
    Bytes publicKey() const;  // 32 bytes
    // The shared secret with a peer's public key; nullopt when that is not 32 bytes or has small
    // order (the secret would be all zero).
    std::optional<Bytes> agree(ByteView peerPublicKey) const;

private:
    struct Secret;
    explicit PrivateKey(std::shared_ptr<const Secret> keySecret);
    std::shared_ptr<const Secret> secret;
};

}  // namespace orvel
