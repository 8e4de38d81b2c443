#include "OrvelKit/Secure/Crypto.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "OrvelKit/Secure/SecureTestKit.h"

namespace orvel {
namespace {

TEST(Crypto, hkdfGivesTheStandardsResults) {
    struct Row {
        const char* name;
        Bytes inputKey, salt, info;
        const char* output;
    };
    const auto counting = [](unsigned first, unsigned last) {
        Bytes bytes;
        for (unsigned value = first; value <= last; ++value)
            bytes.push_back(static_cast<std::uint8_t>(value));
        return bytes;
    };
    const Row rows[] = {
        // RFC 5869, appendix A
        {"basic", Bytes(22, 0x0b), counting(0x00, 0x0c), counting(0xf0, 0xf9),
         "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf34007208d5b887185865"},
        {"three blocks of output", counting(0x00, 0x4f), counting(0x60, 0xaf), counting(0xb0, 0xff),
         "b11e398dc80327a1c8e7f78c596a49344f012eda2d4efad8a050cc4c19afa97c"
         "59045a99cac7827271cb41c65e590e09da3275600c2f09b8367793a9aca3db71"
         "cc30c58179ec3e87c14c01d5c1f3434f1d87"},
        {"no salt, no info",
         Bytes(22, 0x0b),
         {},
         {},
         "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d9d201395faa4b61a96c8"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto output = hex(row.output);
        EXPECT_EQ(hkdfSha256(row.inputKey, row.salt, row.info, output.size()), output);
    }
}

TEST(Crypto, aSignatureIsOfOneKeyAndOneMessage) {
    // RFC 8032, section 7.1, test 3
    const auto key = hex("fc51cd8e6218a1a38da47ed00230f0580816ed13ba3303ac5deb911548908025");
    const auto message = hex("af82");
    const auto signature =
        hex("6291d657deec24024827e69c3abe01a30ce548a284743a445e3680d7db5ac3ac"
            "18ff9b538d16f290ae67f760984dc6594a7c15e9716ed28dc027beceea1ec40a");
    EXPECT_TRUE(verifyEd25519(key, message, signature));
    EXPECT_FALSE(verifyEd25519(key, hex("af83"), signature));
    EXPECT_FALSE(verifyEd25519(key, {}, signature));
    EXPECT_FALSE(verifyEd25519(Bytes(32, 0), message, signature));
    EXPECT_FALSE(verifyEd25519({}, message, signature));
    for (std::size_t i = 0; i < signature.size(); ++i) {
        auto damaged = signature;
        damaged[i] ^= 1;
        EXPECT_FALSE(verifyEd25519(key, message, damaged)) << i;
    }
    EXPECT_FALSE(verifyEd25519(key, message, ByteView(signature).first(63)));
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(Crypto, aBoxOpensOnlyAsItWasSealed) {
    // RFC 8439, section 2.8.2
    SymmetricKey key;
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<std::uint8_t>(0x80 + i);
    const auto data = hex("50515253c0c1c2c3c4c5c6c7");
    const auto box =
        hex("070000004041424344454647"
            "d31a8d34648e60db7b86afbc53ef7ec2a4aded51296e08fea9e2b5a736ee62d6"
            "3dbea45e8ca9671282fafb69da92728b1a71de0a9e060b2905d6a5b67ecd3b36"
            "92ddbd7f2d778b8c9803aee328091b58fab324e4fad675945585808b4831d7bc"
            "3ff4def08e4b7a9de576d26586cec64b6116"
            "1ae10b594f09e26a7e902ecbd0600691");
    const auto plaintext = bytesOf(
        "Ladies and Gentlemen of the class of '99: If I could offer you only one tip for the "
        "future, sunscreen would be it.");
    EXPECT_EQ(openBox(key, box, data), copyOf(plaintext));
    for (const std::size_t at : {std::size_t{0}, std::size_t{12}, box.size() - 1}) {
        Bytes damaged = box;
        damaged[at] ^= 1;
        EXPECT_FALSE(openBox(key, damaged, data)) << at;
    }
    EXPECT_FALSE(openBox(key, box, {}));
    EXPECT_FALSE(openBox({}, box, data));
    for (const std::size_t length : {std::size_t{0}, boxOverhead - 1, boxOverhead}) {
        EXPECT_FALSE(openBox(key, ByteView(box).first(length), data)) << length;
    }

    const auto sealed = sealBox(key, plaintext, data);
    EXPECT_EQ(openBox(key, sealed, data), copyOf(plaintext));
    EXPECT_NE(sealBox(key, plaintext, data), sealed) << "a nonce twice";
    EXPECT_EQ(openBox(key, sealBox(key, {}, {}), {}), Bytes());
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(Crypto, keyAgreementGivesTheStandardsResults) {
    struct Row {
        const char* name;
        const char* own;
        const char* theirs;
        const char* shared;
    };
    const Row rows[] = {
        // RFC 7748, sections 5.2 and 6.1
        {"first scalar", "a546e36bf0527c9d3b16154b82465edd62144c0ac1fc5a18506a2244ba449ac4",
         "e6db6867583030db3594c1a424b15f7c726624ec26b3353b10a903a6d0ab1c4c",
         "c3da55379de9c6908e94ea4df28d084f32eccf03491c71f754b4075577a28552"},
        {"second scalar, top bit of the key set",
         "4b66e9d4d1b4673c5ad22691957d6af5c11b6421e0ea01d42ca4169e7918ba0d",
         "e5210f12786811d3f4b7959d0538ae2c31dbe7106fc03c3efc4cd549c715a493",
         "95cbde9476e8907d7aade45cb4b873f88b595a68799fa152e6f8f7647aac7957"},
        {"Alice with Bob", "77076d0a7318a57d3c16c17251b26645df4c2f87ebc0992ab177fba51db92c2a",
         "de9edb7d7b7dc1b4d35b61c2ece435373f8343c85b78674dadfc7e146f882b4f",
         "4a5d9d5ba4ce2de1728e3bf480350f25e07e21c947d19e3376f09b3c1e161742"},
        {"Bob with Alice", "5dab087e624a8a4b79e17f8b83800ee66f3bb1292618b6fd1c2f8b27ff88e0eb",
         "8520f0098930a754748b7ddcb43ef75a0dbf3a0d26381af4eba4a98eaa9b4e6a",
         "4a5d9d5ba4ce2de1728e3bf480350f25e07e21c947d19e3376f09b3c1e161742"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(privateKey(row.own).agree(hex(row.theirs)), hex(row.shared));
    }
    EXPECT_EQ(
        privateKey("77076d0a7318a57d3c16c17251b26645df4c2f87ebc0992ab177fba51db92c2a").publicKey(),
        hex("8520f0098930a754748b7ddcb43ef75a0dbf3a0d26381af4eba4a98eaa9b4e6a"));
}

TEST(Crypto, aThousandAgreementsInARowGiveTheStandardsResult) {
    Bytes k = hex("09 00000000000000000000000000000000000000000000000000000000000000"), u = k;
    for (int round = 0; round < 1000; ++round) {
        auto next = PrivateKey::fromRaw(k).value().agree(u).value();
        u = std::exchange(k, std::move(next));
    }
    EXPECT_EQ(k, hex("684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51"));
}

TEST(Crypto, noSecretIsAgreedWithAKeyOfSmallOrderOrAnotherLength) {
    const auto own = PrivateKey::generate();
    for (const auto point : smallOrderPoints) {
        SCOPED_TRACE(point);
        Bytes key = hex(point);
        EXPECT_FALSE(own.agree(key));
        key[31] |= 0x80;
        EXPECT_FALSE(own.agree(key));
    }
    for (const std::size_t length : {0, 31, 33, 64}) {
        SCOPED_TRACE(length);
        EXPECT_FALSE(own.agree(Bytes(length, 9)));
        EXPECT_FALSE(PrivateKey::fromRaw(Bytes(length, 9)));
    }
    EXPECT_EQ(ERR_peek_error(), 0u) << "left behind for the thread's next TLS call";
}

TEST(Crypto, aKeySurvivesItsRawForm) {
    const auto key = PrivateKey::generate();
    EXPECT_EQ(PrivateKey::fromRaw(key.raw()).value().publicKey(), key.publicKey());
    EXPECT_NE(PrivateKey::generate().raw(), key.raw());
}

TEST(Crypto, bytesAreEqualOnlyWhenAllOfThemAre) {
    const Bytes digest = copyOf(sha256({}));
    EXPECT_TRUE(equalInConstantTime(digest, copyOf(digest)));
    EXPECT_TRUE(equalInConstantTime({}, {}));
    EXPECT_FALSE(equalInConstantTime(digest, ByteView(digest).first(31)));
    for (const std::size_t at : {0, 15, 31}) {
        Bytes other = digest;
        other[at] ^= 0x80;
        EXPECT_FALSE(equalInConstantTime(digest, other)) << at;
    }
}

}  // namespace
}  // namespace orvel
