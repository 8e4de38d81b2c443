#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Relay/SignalMessage.h"
#include "OrvelKit/Secure/Identity.h"

namespace orvel {

// Why an envelope was not opened.
struct SignalError : std::exception {
    enum class Code { notForUs, unknownSender, stale, undecryptable } code;
    explicit SignalError(Code errorCode) : code(errorCode) {}
    bool operator==(const SignalError& other) const { return code == other.code; }
    const char* what() const noexcept override;
};

// A SignalMessage on its way through the relay, which sees everything here but the message: that is
// sealed with ChaCha20-Poly1305 under a key that only the two paired devices can derive (X25519 of
// their long-term keys, HKDF-SHA256 salted with the session), and bound to all other fields.
//
// Stateless: an envelope opens as often as it is shown, within its time. Whoever acts on messages
// has to know which ones must not work twice.
struct SignalEnvelope {
    std::string from, to;  // device IDs
    std::string session;   // one conversation; chosen by the phone, unique
    double sentAt = 0;     // seconds since 1970-01-01 00:00:00 UTC, whole
    Bytes box;             // 12-byte nonce, ciphertext, 16-byte tag
    bool operator==(const SignalEnvelope&) const = default;

    static constexpr std::chrono::seconds maxAge{120};  // what the agent accepts

    // nullopt when there is no key with that peer (see PrivateKey::agree).
    static std::optional<SignalEnvelope> seal(const SignalMessage& message, const Identity& sender,
                                              ByteView receiverKey, std::string session,
                                              WallTime now);

    // The public key filed under a device ID, if any.
    using KeyLookup = std::function<std::optional<Bytes>(const std::string& deviceID)>;

    // Throws SignalError for the first of these that does not hold: `to` is the receiver
    // (notForUs); `from` has a key, and the key that ID (unknownSender); it was sent at most
    // `maximumAge` ago or ahead (stale); the box opens and holds a message (undecryptable).
    SignalMessage open(const Identity& receiver, const KeyLookup& keyOf, WallTime now,
                       std::chrono::seconds maximumAge = maxAge) const;

    // Encoding cannot fail; decoding throws JsonError.
    std::string toJson() const;
    static SignalEnvelope fromJson(std::string_view json);
};

}  // namespace orvel
