#pragma once

#include <cstdint>
#include <exception>
#include <memory>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Secure/Crypto.h"
#include "OrvelKit/Wire/FrameBuffer.h"

namespace orvel {

// A box whose tag does not verify: wrong key, tampering, replay or reordering.
struct AuthenticationError : std::exception {
    const char* what() const noexcept override { return "authentication failed"; }
};

// The sealed channel of one connection: ChaCha20-Poly1305 (RFC 8439) without associated data, a
// key and a 64-bit message counter for each direction. The nonce is four zero bytes and the
// counter, never transmitted; so boxes open only in the order in which they were sealed, each
// once.
//
// seal* may be called from several threads: each box gets a counter of its own, under a lock; the
// sealing itself runs outside it. Who needs the boxes on the wire in counter order serialises
// sealing and sending. open* belongs to the receive path alone.
class SecureSession {
public:
    static constexpr std::size_t tagLength = 16;

    // Keeps its own copies of the keys and wipes them at its end; the caller wipes the originals.
    SecureSession(const SymmetricKey& sendKey, const SymmetricKey& receiveKey);
    ~SecureSession();
    SecureSession(const SecureSession&) = delete;
    SecureSession& operator=(const SecureSession&) = delete;

    // Ciphertext followed by the tag.
    Bytes seal(ByteView plaintext);

    // Seals the frame in `buffer` where it lies and returns the bytes for the wire: a frame of
    // kind `sealed` around it. They point into `buffer`, which can be sealed once only: what it
    // holds afterwards is no frame, and sealing that would stop the process.
    ByteView sealFrame(FrameBuffer& buffer);

    // Throws SecureHandshake::Failure::malformed below 16 bytes, AuthenticationError when the tag
    // does not verify; the counter is then unchanged.
    Bytes open(ByteView box);
    // The same in place: returns the plaintext as a view of the front of `box`, whose content is
    // undefined after a throw.
    ByteView openInPlace(std::span<std::uint8_t> box);

private:
    struct Sending;
    struct Receiving;
    std::unique_ptr<Sending> sending;
    std::unique_ptr<Receiving> receiving;
};

}  // namespace orvel
