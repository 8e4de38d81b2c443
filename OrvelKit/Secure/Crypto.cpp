#include "OrvelKit/Secure/Crypto.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <algorithm>
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
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Release<EVP_CIPHER_CTX_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>>;
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

namespace {

constexpr std::size_t nonceLength = 12, tagLength = 16;

// Feeds `from` through the cipher; `to` is null for associated data.
void update(EVP_CIPHER_CTX* cipher, std::uint8_t* to, ByteView from) {
    constexpr std::size_t pieceLength = 1 << 20;  // the library counts in int
    while (!from.empty()) {
        const auto piece = from.first(std::min(from.size(), pieceLength));
        int written = 0;
        must(EVP_CipherUpdate(cipher, to, &written, piece.data(), static_cast<int>(piece.size())) ==
                 1,
             "chacha20-poly1305");
        if (to) to += piece.size();
        from = from.subspan(piece.size());
    }
}

CipherContext beginBox(const SymmetricKey& key, const std::uint8_t* nonce, bool sealing) {
    CipherContext cipher(EVP_CIPHER_CTX_new());
    must(cipher && EVP_CipherInit_ex(cipher.get(), EVP_chacha20_poly1305(), nullptr, key.data(),
                                     nonce, sealing) == 1,
         "chacha20-poly1305");
    return cipher;
}

bool finishBox(EVP_CIPHER_CTX* cipher) {
    std::uint8_t none[1];
    int written = 0;
    return EVP_CipherFinal_ex(cipher, none, &written) == 1;
}

}  // namespace

Bytes sealBox(const SymmetricKey& key, ByteView plaintext, ByteView associatedData) {
    Bytes box(plaintext.size() + boxOverhead);
    must(RAND_bytes(box.data(), nonceLength) == 1, "random bytes");
    const auto cipher = beginBox(key, box.data(), true);
    update(cipher.get(), nullptr, associatedData);
    update(cipher.get(), box.data() + nonceLength, plaintext);
    must(finishBox(cipher.get()) &&
             EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_GET_TAG, tagLength,
                                 box.data() + nonceLength + plaintext.size()) == 1,
         "chacha20-poly1305");
    return box;
}

std::optional<Bytes> openBox(const SymmetricKey& key, ByteView box, ByteView associatedData) {
    if (box.size() < boxOverhead) return std::nullopt;
    const ErrorsLeftOut errors;
    const auto tag = box.last(tagLength);
    Bytes plaintext(box.size() - boxOverhead);
    const auto cipher = beginBox(key, box.data(), false);
    must(EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_SET_TAG, tagLength,
                             const_cast<std::uint8_t*>(tag.data())) == 1,
         "chacha20-poly1305");
    update(cipher.get(), nullptr, associatedData);
    update(cipher.get(), plaintext.data(), box.subspan(nonceLength, plaintext.size()));
    if (!finishBox(cipher.get())) {
        wipe(plaintext);
        return std::nullopt;
    }
    return plaintext;
}

bool verifyEd25519(ByteView publicKey, ByteView message, ByteView signature) {
    const ErrorsLeftOut leaveOut;
    const Key key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, publicKey.data(), publicKey.size()));
    const DigestContext context(EVP_MD_CTX_new());
    return key && context &&
           EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
           EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                            message.size()) == 1;
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
