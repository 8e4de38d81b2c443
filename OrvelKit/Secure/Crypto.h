#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "OrvelKit/Base/Bytes.h"

namespace orvel {

// Thin wrappers around the library's primitives. A failure inside the library that no input can
// cause stops the process. Whoever is handed secret bytes wipes them (WipeAtEnd).

using Digest = std::array<std::uint8_t, 32>;
using SymmetricKey = std::array<std::uint8_t, 32>;

Digest sha256(ByteView bytes);

// HKDF with SHA-256 (RFC 5869): extract, then expand to `length` bytes. The input key is not empty,
// `info` at most 1,024 bytes, `length` 1 to 8,160; the process stops otherwise.
Bytes hkdfSha256(ByteView inputKey, ByteView salt, ByteView info, std::size_t length);

// ChaCha20-Poly1305 (RFC 8439) in combined form: a random 12-byte nonce, the ciphertext, the
// 16-byte tag. With random nonces one key may seal some 2^32 boxes. For a stream of boxes see
// SecureSession.
inline constexpr std::size_t boxOverhead = 12 + 16;
Bytes sealBox(const SymmetricKey& key, ByteView plaintext, ByteView associatedData);
// nullopt when it is shorter than boxOverhead or does not verify.
std::optional<Bytes> openBox(const SymmetricKey& key, ByteView box, ByteView associatedData);

// Ed25519 (RFC 8032, the pure form). False also when the key is not 32 bytes or the signature not
// 64.
bool verifyEd25519(ByteView publicKey, ByteView message, ByteView signature);

// Compares in a time that does not depend on the content.
bool equalInConstantTime(ByteView a, ByteView b);

// Overwrites in a way that the compiler does not remove.
void wipe(std::span<std::uint8_t> secret);

// Wipes at the end of its scope, however that is left. Declared after `secret`, whose buffer must
// stay where it is: a vector that grows leaves its old buffer unwiped.
class WipeAtEnd {
public:
    explicit WipeAtEnd(std::span<std::uint8_t> secretBytes) : secret(secretBytes) {}
    ~WipeAtEnd() { wipe(secret); }
    WipeAtEnd(const WipeAtEnd&) = delete;
    WipeAtEnd& operator=(const WipeAtEnd&) = delete;

private:
    std::span<std::uint8_t> secret;
};

// An X25519 (RFC 7748) private key. Copies share the immutable secret, which is wiped with the
// last one; any thread may use them at any time.
class PrivateKey {
public:
    static constexpr std::size_t length = 32;

    static PrivateKey generate();
    // nullopt unless 32 bytes.
    static std::optional<PrivateKey> fromRaw(ByteView raw);

    Bytes raw() const;        // 32 bytes, secret
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
