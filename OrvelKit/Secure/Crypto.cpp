#include "OrvelKit/Secure/Crypto.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <cstdio>
#include <cstdlib>

namespace orvel {

namespace {

template <auto release>
struct Release {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;
using Kdf = std::unique_ptr<EVP_KDF, Release<EVP_KDF_free>>;
using KdfContext = std::unique_ptr<EVP_KDF_CTX, Release<EVP_KDF_CTX_free>>;

void must(bool succeeded, const char* operation) {
    if (succeeded) return;
    std::fprintf(stderr, "orvel: %s failed in the crypto library\n", operation);
    std::abort();
}

// A refused peer key leaves an entry in the library's error queue of this thread, where the next
// TLS call would find it and take it for its own.
class ErrorsLeftOut {
public:
    ErrorsLeftOut() { ERR_set_mark(); }
    ~ErrorsLeftOut() { ERR_pop_to_mark(); }
    ErrorsLeftOut(const ErrorsLeftOut&) = delete;
    ErrorsLeftOut& operator=(const ErrorsLeftOut&) = delete;
};

OSSL_PARAM octets(const char* name, ByteView bytes) {
    static std::uint8_t nothing;  // the library refuses a null pointer, even with length 0
    auto* data = bytes.empty() ? &nothing : const_cast<std::uint8_t*>(bytes.data());
    return OSSL_PARAM_construct_octet_string(name, data, bytes.size());
}

}  // namespace

Digest sha256(ByteView bytes) {
    Digest digest;
    must(EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1,
         "sha-256");
    return digest;
}

Bytes hkdfSha256(ByteView inputKey, ByteView salt, ByteView info, std::size_t length) {
    const Kdf kdf(EVP_KDF_fetch(nullptr, OSSL_KDF_NAME_HKDF, nullptr));
    const KdfContext context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
    must(context != nullptr, "hkdf");
    char digestName[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digestName, 0),
        octets(OSSL_KDF_PARAM_KEY, inputKey), octets(OSSL_KDF_PARAM_SALT, salt),
        octets(OSSL_KDF_PARAM_INFO, info), OSSL_PARAM_construct_end()};
    Bytes output(length);
    must(EVP_KDF_derive(context.get(), output.data(), output.size(), parameters) == 1, "hkdf");
    return output;
}

bool equalInConstantTime(ByteView a, ByteView b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

void wipe(std::span<std::uint8_t> secret) {
    OPENSSL_cleanse(secret.data(), secret.size());
}

struct PrivateKey::Secret {
    Key key;  // the library wipes it when it is freed
};

PrivateKey::PrivateKey(std::shared_ptr<const Secret> keySecret) : secret(std::move(keySecret)) {}

PrivateKey PrivateKey::generate() {
    Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519"));
    must(key != nullptr, "key generation");
    return PrivateKey(std::make_shared<const Secret>(Secret{std::move(key)}));
}

std::optional<PrivateKey> PrivateKey::fromRaw(ByteView raw) {
    if (raw.size() != length) return std::nullopt;
    Key key(EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, raw.data(), raw.size()));
    must(key != nullptr, "key import");
    return PrivateKey(std::make_shared<const Secret>(Secret{std::move(key)}));
}

Bytes PrivateKey::raw() const {
    Bytes bytes(length);
    std::size_t written = bytes.size();
    must(EVP_PKEY_get_raw_private_key(secret->key.get(), bytes.data(), &written) == 1 &&
             written == length,
         "key export");
    return bytes;
}

Bytes PrivateKey::publicKey() const {
    Bytes bytes(length);
    std::size_t written = bytes.size();
    must(EVP_PKEY_get_raw_public_key(secret->key.get(), bytes.data(), &written) == 1 &&
             written == length,
         "public key export");
    return bytes;
}

std::optional<Bytes> PrivateKey::agree(ByteView peerPublicKey) const {
    if (peerPublicKey.size() != length) return std::nullopt;
    const ErrorsLeftOut errors;
    const Key peer(EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, peerPublicKey.data(),
                                               peerPublicKey.size()));
    const KeyContext context(EVP_PKEY_CTX_new(secret->key.get(), nullptr));
    must(context != nullptr && EVP_PKEY_derive_init(context.get()) == 1, "key agreement");
    Bytes shared(length);
    std::size_t written = shared.size();
    // The library refuses a shared secret of all zeros.
    if (!peer || EVP_PKEY_derive_set_peer(context.get(), peer.get()) != 1 ||
        EVP_PKEY_derive(context.get(), shared.data(), &written) != 1 || written != length) {
        return std::nullopt;
    }
    return shared;
}

}  // namespace orvel
