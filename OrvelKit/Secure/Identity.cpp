#include "OrvelKit/Secure/Identity.h"

namespace orvel {

namespace {

constexpr const char* account = "identity";

// Whole characters only: what is left of the last byte below five bits is not written.
std::string base32(ByteView bytes) {
    static constexpr char alphabet[] = "abcdefghijklmnopqrstuvwxyz234567";
    std::string text;
    std::uint32_t pending = 0;  // its lowest `bits` bits are not written yet
    int bits = 0;
    for (const std::uint8_t byte : bytes) {
        pending = pending << 8 | byte;
        for (bits += 8; bits >= 5; bits -= 5)
            text += alphabet[pending >> (bits - 5) & 31];
    }
    return text;
}

}  // namespace

Identity Identity::load(SecretStore& store, const std::string& service) {
    auto item = store.read(service, account);
    const WipeAtEnd wipeItem(item.data);
    if (item.status == SecretStore::Item::Status::found) {
        if (auto key = PrivateKey::fromRaw(item.data)) return {*std::move(key)};
    }
    Identity identity{PrivateKey::generate()};
    Bytes raw = identity.privateKey.raw();
    const WipeAtEnd wipeRaw(raw);
    store.add(service, account, raw);
    return identity;
}

Bytes Identity::publicKey() const {
    return privateKey.publicKey();
}

std::string Identity::fingerprint() const {
    return fingerprint(publicKey());
}

std::string Identity::fingerprint(ByteView publicKey) {
    return base32(ByteView(sha256(publicKey)).first(10));
}

}  // namespace orvel
