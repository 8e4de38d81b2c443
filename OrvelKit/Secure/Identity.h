#pragma once

#include <string>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/SecretStore.h"
#include "OrvelKit/Secure/Crypto.h"

namespace orvel {

// A device's long-term Curve25519 key, agent's or phone's. Immutable; share it freely.
struct Identity {
    PrivateKey privateKey;

    // The key stored under `service` and account "identity", or a new one, which is added. Never
    // fails: a new key that could not be stored serves this run only. An item that cannot be read,
    // or is no key, is left as it is, so every later start makes a new key too, until somebody
    // repairs the store.
    static Identity load(SecretStore& store, const std::string& service);

    Bytes publicKey() const;          // 32 bytes
    std::string fingerprint() const;  // the device ID of the own public key

    // A public key's device ID: the first 10 bytes of its SHA-256 in lowercase base32 (RFC 4648
    // alphabet, no padding), 16 characters.
    static std::string fingerprint(ByteView publicKey);
};

}  // namespace orvel
