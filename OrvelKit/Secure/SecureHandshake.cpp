#include "OrvelKit/Secure/SecureHandshake.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace orvel {

namespace {

using Failure = SecureHandshake::Failure;

constexpr std::uint8_t commitVersion = 1;
constexpr std::size_t keyLength = PrivateKey::length;
static_assert(SecureHandshake::commitLength == 1 + std::tuple_size_v<Digest>);
static_assert(SecureHandshake::keysLength == 2 * keyLength);
static_assert(SecureHandshake::revealLength == 2 * keyLength);

// Message 2 and message 3: static key, then ephemeral key.
Bytes publicKeys(const Identity& identity, const PrivateKey& ephemeral) {
    Bytes keys = identity.publicKey();
    append(keys, ephemeral.publicKey());
    return keys;
}

struct Keys {
    ByteView staticKey, ephemeralKey;

    explicit Keys(ByteView message)
        : staticKey(message.first(keyLength)), ephemeralKey(message.subspan(keyLength)) {}
};

SymmetricKey deriveKey(ByteView inputKey, ByteView salt, std::string_view direction) {
    Bytes derived = hkdfSha256(inputKey, salt, bytesOf(direction), std::tuple_size_v<SymmetricKey>);
    const WipeAtEnd wipeDerived(derived);
    SymmetricKey key;
    std::copy(derived.begin(), derived.end(), key.begin());
    return key;
}

enum class Role { initiator, responder };

// `phoneKeys` and `agentKeys`: the 64 bytes of message 3 and message 2.
SecureHandshake::Result derive(Role role, const Identity& identity, const PrivateKey& ephemeral,
                               ByteView phoneKeys, ByteView agentKeys) {
    const bool initiating = role == Role::initiator;
    const Keys peer(initiating ? agentKeys : phoneKeys);

    // Ephemeral with ephemeral; then the phone's static key; then the agent's.
    const PrivateKey& forPhoneStatic = initiating ? identity.privateKey : ephemeral;
    const PrivateKey& forAgentStatic = initiating ? ephemeral : identity.privateKey;
    const struct {
        const PrivateKey& own;
        ByteView theirs;
    } agreements[] = {{ephemeral, peer.ephemeralKey},
                      {forPhoneStatic, initiating ? peer.ephemeralKey : peer.staticKey},
                      {forAgentStatic, initiating ? peer.staticKey : peer.ephemeralKey}};
    std::array<std::uint8_t, std::size(agreements) * keyLength> inputKey;
    const WipeAtEnd wipeInputKey(inputKey);
    auto end = inputKey.begin();
    for (const auto& [own, theirs] : agreements) {
        auto shared = own.agree(theirs);
        if (!shared) throw Failure(Failure::Code::badKey);
        const WipeAtEnd wipeShared(*shared);
        end = std::copy(shared->begin(), shared->end(), end);
    }

    Bytes transcript(phoneKeys.begin(), phoneKeys.end());
    append(transcript, agentKeys);
    const Digest salt = sha256(transcript);

    auto phoneToAgent = deriveKey(inputKey, salt, "orvel-lan-v1 phone->mac");
    const WipeAtEnd wipePhoneToAgent(phoneToAgent);
    auto agentToPhone = deriveKey(inputKey, salt, "orvel-lan-v1 mac->phone");
    const WipeAtEnd wipeAgentToPhone(agentToPhone);

    Bytes codeInput(salt.begin(), salt.end());
    append(codeInput, bytesOf("orvel-pairing-code"));
    SecureHandshake::Result result;
    result.session = std::make_unique<SecureSession>(initiating ? phoneToAgent : agentToPhone,
                                                     initiating ? agentToPhone : phoneToAgent);
    result.peerKey.assign(peer.staticKey.begin(), peer.staticKey.end());
    result.code = SecureHandshake::pairingCode(sha256(codeInput));
    return result;
}

}  // namespace

const char* SecureHandshake::Failure::what() const noexcept {
    switch (code) {
        case Code::malformed:
            return "malformed handshake";
        case Code::commitMismatch:
            return "revealed keys differ from the committed ones";
        case Code::badKey:
            return "bad public key";
    }
    return "";
}

SecureHandshake::Responder::Responder(Identity ownIdentity, PrivateKey ownEphemeral)
    : identity(std::move(ownIdentity)), ephemeral(std::move(ownEphemeral)) {}

Bytes SecureHandshake::Responder::receive(ByteView commitMessage) {
    const bool inTurn = state == State::fresh;
    state = State::finished;
    if (!inTurn || commitMessage.size() != commitLength || commitMessage[0] != commitVersion) {
        ephemeral.reset();
        throw Failure(Failure::Code::malformed);
    }
    commitment.assign(commitMessage.begin() + 1, commitMessage.end());
    Bytes keys = publicKeys(identity, *ephemeral);
    state = State::committed;
    return keys;
}

SecureHandshake::Result SecureHandshake::Responder::finish(ByteView revealMessage) {
    const bool inTurn = state == State::committed;
    state = State::finished;
    const auto ownEphemeral = std::exchange(ephemeral, std::nullopt);
    if (!inTurn || revealMessage.size() != revealLength) {
        throw Failure(Failure::Code::malformed);
    }
    if (!equalInConstantTime(sha256(revealMessage), commitment)) {
        throw Failure(Failure::Code::commitMismatch);
    }
    return derive(Role::responder, identity, *ownEphemeral, revealMessage,
                  publicKeys(identity, *ownEphemeral));
}

SecureHandshake::Initiator::Initiator(Identity ownIdentity, PrivateKey ownEphemeral)
    : identity(std::move(ownIdentity)),
      ephemeral(std::move(ownEphemeral)),
      reveal(publicKeys(identity, *ephemeral)) {}

Bytes SecureHandshake::Initiator::commit() const {
    Bytes message{commitVersion};
    append(message, sha256(reveal));
    return message;
}

SecureHandshake::Initiator::Finished SecureHandshake::Initiator::receive(ByteView keysMessage) {
    const auto ownEphemeral = std::exchange(ephemeral, std::nullopt);
    if (!ownEphemeral || keysMessage.size() != keysLength) {
        throw Failure(Failure::Code::malformed);
    }
    return {reveal, derive(Role::initiator, identity, *ownEphemeral, reveal, keysMessage)};
}

std::string SecureHandshake::pairingCode(const Digest& digest) {
    const unsigned number = (unsigned{digest[0]} << 16 | unsigned{digest[1]} << 8 | digest[2]);
    char text[7];
    std::snprintf(text, sizeof text, "%06u", number % 1'000'000);
    return text;
}

}  // namespace orvel
