#include "OrvelKit/Relay/SignalEnvelope.h"

#include <algorithm>
#include <cmath>

#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

template <>
struct JsonForm<SignalEnvelope> {
    static void members(auto& json, auto& envelope) {
        json("from", envelope.from);
        json("to", envelope.to);
        json("session", envelope.session);
        json("sentAt", envelope.sentAt);
        json("box", envelope.box);
    }
};

namespace {

using Code = SignalError::Code;

double secondsSince1970(WallTime time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

// nullopt when a time is none that 64 bits hold.
std::optional<std::string> associatedData(const SignalEnvelope& envelope) {
    if (!(std::abs(envelope.sentAt) < 0x1p63)) return std::nullopt;
    return envelope.from + '|' + envelope.to + '|' + envelope.session + '|' +
           std::to_string(static_cast<std::int64_t>(envelope.sentAt));
}

std::optional<SymmetricKey> deriveKey(const PrivateKey& own, ByteView peerKey,
                                      const std::string& session) {
    auto shared = own.agree(peerKey);
    if (!shared) return std::nullopt;
    const WipeAtEnd wipeShared(*shared);
    SymmetricKey key;
    Bytes derived = hkdfSha256(*shared, bytesOf(session), bytesOf("orvel-signal-v1"), key.size());
    const WipeAtEnd wipeDerived(derived);
    std::copy(derived.begin(), derived.end(), key.begin());
    return key;
}

}  // namespace

const char* SignalError::what() const noexcept {
    switch (code) {
        case Code::notForUs:
            return "not for us";
        case Code::unknownSender:
            return "unknown sender";
        case Code::stale:
            return "stale";
        case Code::undecryptable:
            return "undecryptable";
    }
    return "";
}

std::optional<SignalEnvelope> SignalEnvelope::seal(const SignalMessage& message,
                                                   const Identity& sender, ByteView receiverKey,
                                                   std::string session, WallTime now) {
    SignalEnvelope envelope{sender.fingerprint(),
                            Identity::fingerprint(receiverKey),
                            std::move(session),
                            std::round(secondsSince1970(now)),
                            {}};
    auto key = deriveKey(sender.privateKey, receiverKey, envelope.session);
    if (!key) return std::nullopt;
    const WipeAtEnd wipeKey(*key);
    envelope.box =
        sealBox(*key, bytesOf(message.toJson()), bytesOf(associatedData(envelope).value()));
    return envelope;
}

SignalMessage SignalEnvelope::open(const Identity& receiver, const KeyLookup& keyOf, WallTime now,
                                   std::chrono::seconds maximumAge) const {
    if (to != receiver.fingerprint()) throw SignalError(Code::notForUs);

    const auto senderKey = keyOf(from);
    if (!senderKey || Identity::fingerprint(*senderKey) != from) {
        throw SignalError(Code::unknownSender);
    }

    // Written so that a time that is no number is stale.
    if (!(std::abs(secondsSince1970(now) - sentAt) <= static_cast<double>(maximumAge.count()))) {
        throw SignalError(Code::stale);
    }

    const auto data = associatedData(*this);
    auto key = deriveKey(receiver.privateKey, *senderKey, session);
    if (!data || !key) throw SignalError(Code::undecryptable);
    const WipeAtEnd wipeKey(*key);
    const auto plaintext = openBox(*key, box, bytesOf(*data));
    if (!plaintext) throw SignalError(Code::undecryptable);
    try {
        return SignalMessage::fromJson(textOf(*plaintext));
    } catch (const JsonError&) {
        throw SignalError(Code::undecryptable);
    }
}

std::string SignalEnvelope::toJson() const {
    return encodeJson(*this);
}

SignalEnvelope SignalEnvelope::fromJson(std::string_view json) {
    return decodeJson<SignalEnvelope>(json);
}

}  // namespace orvel
