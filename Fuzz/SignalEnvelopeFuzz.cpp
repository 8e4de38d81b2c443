#include <algorithm>

#include "Fuzz/Fuzz.h"
#include "Fuzz/Pieces.h"
#include "OrvelKit/Relay/SignalEnvelope.h"

namespace orvel {
namespace {

Identity identity(std::uint8_t seed) {
    return {PrivateKey::fromRaw(Bytes(PrivateKey::length, seed)).value()};
}

const Identity agent = identity(1), phone = identity(2);
const WallTime now{std::chrono::seconds(1731715200)};

std::optional<Bytes> keyOf(const std::string& id) {
    if (id == phone.fingerprint()) return phone.publicKey();
    return std::nullopt;
}

// No outcome but a message or one of the four errors.
bool opens(const SignalEnvelope& envelope) {
    try {
        envelope.open(agent, keyOf, now);
        return true;
    } catch (const SignalError&) {
        return false;
    }
}

// What anybody may send on the topic.
void tryAsJson(ByteView input) {
    try {
        const auto envelope = SignalEnvelope::fromJson(textOf(input));
        claim(SignalEnvelope::fromJson(envelope.toJson()) == envelope,
              "an envelope survives its JSON");
        claim(!opens(envelope) || envelope.from == phone.fingerprint(), "it comes from the phone");
    } catch (const JsonError&) {
    }
}

// A genuine envelope with one field replaced: opens only when that changed nothing.
void tryDamaged(ByteView input) {
    static const auto good =
        SignalEnvelope::seal({SignalMessage::Probe{}}, phone, agent.publicKey(), "s", now).value();
    auto damaged = good;
    Pieces pieces(input);
    const auto field = pieces.byte() % 4;
    const auto piece = pieces.piece();
    const std::string text(textOf(piece));
    if (field == 0) damaged.from = text;
    if (field == 1) damaged.to = text;
    if (field == 2) damaged.session = text;
    if (field == 3) damaged.box.assign(piece.begin(), piece.end());
    claim(opens(damaged) == (damaged == good), "every field counts");
}

}  // namespace
}  // namespace orvel

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvel::tryAsJson({data, size});
    orvel::tryDamaged({data, size});
    return 0;
}
