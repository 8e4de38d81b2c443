#include "OrvelKit/Secure/Identity.h"

#include <gtest/gtest.h>

#include "OrvelKit/Base/MemorySecretStore.h"
#include "OrvelKit/Secure/SecureTestKit.h"

namespace orvel {
namespace {

constexpr const char* service = "com.example.orvel";

// A store that is there but does not open.
class LockedSecretStore : public MemorySecretStore {
public:
    Item read(const std::string&, const std::string&) override {
        return {Item::Status::unreadable, {}};
    }
};

TEST(Identity, theFirstLoadStoresAKeyAndLaterOnesFindIt) {
    MemorySecretStore store;
    const auto first = Identity::load(store, service);
    const auto item = store.read(service, "identity");
    EXPECT_EQ(item.status, SecretStore::Item::Status::found);
    EXPECT_EQ(item.data, first.privateKey.raw());
    EXPECT_EQ(Identity::load(store, service).publicKey(), first.publicKey());
    EXPECT_NE(Identity::load(store, "com.example.other").publicKey(), first.publicKey());
}

TEST(Identity, anItemThatIsNoKeyStaysAndEveryLoadMakesANewKey) {
    for (const std::size_t length : {0, 31, 33}) {
        SCOPED_TRACE(length);
        MemorySecretStore store;
        const Bytes odd(length, 7);
        store.add(service, "identity", odd);
        const auto first = Identity::load(store, service);
        EXPECT_NE(Identity::load(store, service).publicKey(), first.publicKey());
        EXPECT_EQ(store.read(service, "identity").data, odd);
    }
}

TEST(Identity, aLockedStoreGivesANewKeyAndKeepsWhatItHolds) {
    LockedSecretStore store;
    const Bytes kept(32, 7);
    store.add(service, "identity", kept);
    const auto first = Identity::load(store, service);
    EXPECT_NE(first.privateKey.raw(), kept);
    EXPECT_NE(Identity::load(store, service).publicKey(), first.publicKey());
    EXPECT_EQ(store.MemorySecretStore::read(service, "identity").data, kept);
}

TEST(Identity, theDeviceIdIsTheStartOfTheKeysDigestInBase32) {
    const std::pair<const char*, const char*> rows[] = {
        {"", "4oymiquy7qobjgx3"},
        {"07a37cbc142093c8b755dc1b10e86cb426374ad16aa853ed0bdfc0b2b86d1c7c", "vkup75ydwufsff7u"},
        {"64b101b1d0be5a8704bd078f9895001fc03e8e9f9522f188dd128d9846d48466", "xscb3oh6upx5qrkv"}};
    for (const auto& [key, id] : rows)
        EXPECT_EQ(Identity::fingerprint(hex(key)), id);

    const Identity identity{
        privateKey("0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20")};
    EXPECT_EQ(identity.fingerprint(), "vkup75ydwufsff7u");
}

TEST(Identity, everyDeviceIdIsSixteenCharactersOfTheAlphabet) {
    Bytes input;
    for (int length = 0; length < 200; ++length) {
        const auto id = Identity::fingerprint(input);
        EXPECT_EQ(id.size(), 16u);
        EXPECT_EQ(id.find_first_not_of("abcdefghijklmnopqrstuvwxyz234567"), std::string::npos);
        input.push_back(static_cast<std::uint8_t>(length));
    }
}

}  // namespace
}  // namespace orvel
