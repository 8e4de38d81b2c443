#include "OrvelKit/Relay/SignalEnvelope.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "OrvelKit/Relay/SignalTopic.h"
#include "OrvelKit/Secure/SecureTestKit.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using Code = SignalError::Code;

// What another implementation of the same primitives made of these keys and this message.
const Identity agent{
    privateKey("0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20")};
const Identity phone{
    privateKey("404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f")};
constexpr const char* foreignJson =
    R"({"from":"vkup75ydwufsff7u","to":"m7fc77lp5hx2wplw",)"
    R"("session":"3F2504E0-4F89-41D3-9A0C-0305E82C3301","sentAt":1731715200,)"
    R"("box":"AAECAwQFBgcICQoLEi7HXz4wIBnJA6cvo0chaNcQ/y9CscO5o2AyD2zpJqVy1k6LlKBdOwk4K+BNIQ9s+Z69)"
    R"(5onfQhdOE6tOk1coupVlU3S6irFaqnQ="})";
const SignalMessage message{SignalMessage::Here{"Ayşe'nin bilgisayarı", false}};
const WallTime sent{1731715200s};

std::optional<Bytes> knows(const std::string& id) {
    for (const auto& identity : {agent, phone}) {
        if (identity.fingerprint() == id) return identity.publicKey();
    }
    return std::nullopt;
}

// What `open` made of it.
std::optional<Code> errorOf(const SignalEnvelope& envelope, WallTime now = sent,
                            const SignalEnvelope::KeyLookup& keyOf = knows) {
    try {
        EXPECT_EQ(envelope.open(phone, keyOf, now), message);
        return std::nullopt;
    } catch (const SignalError& error) {
        return error.code;
    }
}

TEST(SignalEnvelope, opensWhatAnotherImplementationSealed) {
    const auto envelope = SignalEnvelope::fromJson(foreignJson);
    EXPECT_EQ(errorOf(envelope), std::nullopt);
    EXPECT_EQ(envelope.toJson(), foreignJson);
}

TEST(SignalEnvelope, opensWhatItSealed) {
    const auto envelope =
        SignalEnvelope::seal(message, agent, phone.publicKey(), "session", sent + 499ms).value();
    EXPECT_EQ(envelope.from, agent.fingerprint());
    EXPECT_EQ(envelope.to, phone.fingerprint());
    EXPECT_EQ(envelope.session, "session");
    EXPECT_EQ(envelope.sentAt, 1731715200);
    EXPECT_EQ(SignalEnvelope::fromJson(envelope.toJson()), envelope);
    EXPECT_EQ(errorOf(envelope), std::nullopt);

    const auto again =
        SignalEnvelope::seal(message, agent, phone.publicKey(), "session", sent + 500ms).value();
    EXPECT_EQ(again.sentAt, 1731715201);
    EXPECT_NE(again.box, envelope.box);

    for (const auto point : smallOrderPoints) {
        EXPECT_FALSE(SignalEnvelope::seal(message, agent, hex(point), "session", sent)) << point;
    }
    EXPECT_FALSE(SignalEnvelope::seal(message, agent, {}, "session", sent));
}

TEST(SignalEnvelope, theFirstCheckThatFailsDecides) {
    const auto good = SignalEnvelope::fromJson(foreignJson);
    struct Row {
        const char* name;
        std::function<void(SignalEnvelope&)> damage;
        std::optional<Code> expected;
        std::chrono::milliseconds late{0};
    };
    const auto nothing = [](SignalEnvelope&) {};
    const Row rows[] = {
        {"as sent", nothing, std::nullopt},
        {"just in time", nothing, std::nullopt, 120s},
        {"just not too early", nothing, std::nullopt, -120s},
        {"late", nothing, Code::stale, 120'001ms},
        {"early", nothing, Code::stale, -120'001ms},
        {"for another", [](auto& e) { e.to = "aaaaaaaaaaaaaaaa"; }, Code::notForUs},
        {"for nobody", [](auto& e) { e.to.clear(); }, Code::notForUs},
        {"from another", [](auto& e) { e.from = "aaaaaaaaaaaaaaaa"; }, Code::unknownSender},
        {"from ourselves", [](auto& e) { e.from = e.to; }, Code::undecryptable},
        {"for and from another", [](auto& e) { std::swap(e.from, e.to); }, Code::notForUs},
        {"from another and late", [](auto& e) { e.from += "a"; }, Code::unknownSender, 121s},
        {"sent a second later", [](auto& e) { e.sentAt += 1; }, Code::undecryptable},
        {"with a fraction that does not count", [](auto& e) { e.sentAt += 0.5; }, std::nullopt},
        {"sent at no time", [](auto& e) { e.sentAt = std::nan(""); }, Code::stale},
        {"sent when time ends", [](auto& e) { e.sentAt = 1e300; }, Code::stale},
        {"in another session", [](auto& e) { e.session.back() = '2'; }, Code::undecryptable},
        {"in no session", [](auto& e) { e.session.clear(); }, Code::undecryptable},
        {"no box", [](auto& e) { e.box.clear(); }, Code::undecryptable},
        {"too short for a box", [](auto& e) { e.box.resize(27); }, Code::undecryptable},
        {"nothing in the box", [](auto& e) { e.box.resize(28); }, Code::undecryptable},
        {"a huge box", [](auto& e) { e.box.resize(5 << 20); }, Code::undecryptable},
        {"changed nonce", [](auto& e) { e.box[0] ^= 1; }, Code::undecryptable},
        {"changed text", [](auto& e) { e.box[20] ^= 1; }, Code::undecryptable},
        {"changed tag", [](auto& e) { e.box.back() ^= 1; }, Code::undecryptable},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto envelope = good;
        row.damage(envelope);
        EXPECT_EQ(errorOf(envelope, sent + row.late), row.expected);
    }
    // A key that is filed under another's ID, and one with which there is no secret.
    EXPECT_EQ(errorOf(good, sent, [](const auto&) { return phone.publicKey(); }),
              Code::unknownSender);
    auto small = good;
    small.from = Identity::fingerprint(hex(smallOrderPoints[0]));
    EXPECT_EQ(errorOf(small, sent, [](const auto&) { return hex(smallOrderPoints[0]); }),
              Code::undecryptable);
}

TEST(SignalEnvelope, whatIsSealedMustBeAMessage) {
    // Sealed properly, but not by us: there is no way to make seal() do it.
    const std::string session = "s";
    const auto shared = agent.privateKey.agree(phone.publicKey()).value();
    const auto derived = hkdfSha256(shared, bytesOf(session), bytesOf("orvel-signal-v1"), 32);
    SymmetricKey key;
    std::copy(derived.begin(), derived.end(), key.begin());
    const std::string data = agent.fingerprint() + "|" + phone.fingerprint() + "|s|1731715200";
    const auto carrying = [&](std::string_view text) {
        return SignalEnvelope{agent.fingerprint(), phone.fingerprint(), session, 1731715200,
                              sealBox(key, bytesOf(text), bytesOf(data))};
    };
    EXPECT_EQ(errorOf(carrying(message.toJson())), std::nullopt);
    for (const auto* text : {"", "{}", R"({"hello":{}})", "\xff", R"({"probe":{},"bye":{}})"}) {
        EXPECT_EQ(errorOf(carrying(text)), Code::undecryptable) << text;
    }
}

TEST(SignalEnvelope, refusesJsonThatIsNone) {
    const std::string good = foreignJson;
    EXPECT_NO_THROW(SignalEnvelope::fromJson(good));
    const std::pair<const char*, const char*> replacements[] = {
        {R"("from":)", R"("FROM":)"},      {R"("vkup75ydwufsff7u")", "1"},
        {R"("session":)", R"("sesion":)"}, {"1731715200", R"("1731715200")"},
        {"1731715200", "1e999"},           {"AAEC", "AA C"},
        {R"(qnQ=")", R"(qnQ")"},           {R"("})", R"(")"},
    };
    for (const auto& [from, to] : replacements) {
        auto damaged = good;
        damaged.replace(damaged.rfind(from), std::string_view(from).size(), to);
        EXPECT_THROW(SignalEnvelope::fromJson(damaged), JsonError) << damaged;
    }
}

TEST(SignalTopic, isMadeOfTheDeviceID) {
    EXPECT_EQ(SignalTopic::name(agent.fingerprint()), "orvel-vkup75ydwufsff7u");
}

}  // namespace
}  // namespace orvel
