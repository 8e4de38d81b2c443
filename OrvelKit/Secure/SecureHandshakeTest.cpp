#include "OrvelKit/Secure/SecureHandshake.h"

#include <gtest/gtest.h>

#include <functional>

#include "OrvelKit/Secure/SecureTestKit.h"

namespace orvel {
namespace {

using Code = SecureHandshake::Failure::Code;
using Initiator = SecureHandshake::Initiator;
using Responder = SecureHandshake::Responder;

// One exchange with fixed keys; every value below was computed by another implementation (a plain
// ladder after RFC 7748, HMAC and SHA-256 of Python's library).
const Identity phone{
    privateKey("0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20")};
const auto phoneEphemeral =
    privateKey("2122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f40");
const Identity agent{
    privateKey("4142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f60")};
const auto agentEphemeral =
    privateKey("6162636465666768696a6b6c6d6e6f707172737475767778797a7b7c7d7e7f80");

const Bytes commit = hex("01 d02fdb03b9860ce0d22113e1b906845443df3a17739627f32f1077b11f1956f2");
const Bytes keys =
    hex("64b101b1d0be5a8704bd078f9895001fc03e8e9f9522f188dd128d9846d48466"
        "244fe3b963e899dd295baffce248d3530f3a9a7479ba063002680ebfe7adad49");
const Bytes reveal =
    hex("07a37cbc142093c8b755dc1b10e86cb426374ad16aa853ed0bdfc0b2b86d1c7c"
        "5869aff450549732cbaaed5e5df9b30a6da31cb0e5742bad5ad4a1a768f1a67b");
const Bytes firstBoxOfPhone = hex("8791f5619d 9cfd5473176a588cf3f29a57af07513a");   // "hello"
const Bytes secondBoxOfPhone = hex("613ee72e69 b3f738dadbd4125b6af4506787ba9d4b");  // "again"
const Bytes firstBoxOfAgent = hex("5a1db4f552 fbc59cf553dbf64814872fdafa3315bc");   // "hello"

Bytes commitTo(ByteView revealMessage) {
    Bytes message{1};
    append(message, sha256(revealMessage));
    return message;
}

Responder committedResponder() {
    Responder responder(agent, agentEphemeral);
    responder.receive(commit);
    return responder;
}

std::optional<Code> failureOf(const std::function<void()>& step) {
    try {
        step();
    } catch (const SecureHandshake::Failure& failure) {
        return failure.code;
    }
    return std::nullopt;
}

TEST(SecureHandshake, fixedKeysGiveTheKnownMessagesCodeAndSessionKeys) {
    Initiator initiator(phone, phoneEphemeral);
    EXPECT_EQ(initiator.commit(), commit);
    Responder responder(agent, agentEphemeral);
    EXPECT_EQ(responder.receive(commit), keys);
    auto [revealMessage, atPhone] = initiator.receive(keys);
    EXPECT_EQ(revealMessage, reveal);
    auto atAgent = responder.finish(reveal);

    EXPECT_EQ(atPhone.code, "734527");
    EXPECT_EQ(atAgent.code, "734527");
    EXPECT_EQ(atPhone.peerKey, agent.publicKey());
    EXPECT_EQ(atAgent.peerKey, phone.publicKey());
    EXPECT_EQ(atPhone.session->seal(bytesOf("hello")), firstBoxOfPhone);
    EXPECT_EQ(atPhone.session->seal(bytesOf("again")), secondBoxOfPhone);
    EXPECT_EQ(atAgent.session->seal(bytesOf("hello")), firstBoxOfAgent);
    EXPECT_EQ(textOf(atAgent.session->open(firstBoxOfPhone)), "hello");
    EXPECT_EQ(textOf(atAgent.session->open(secondBoxOfPhone)), "again");
    EXPECT_EQ(textOf(atPhone.session->open(firstBoxOfAgent)), "hello");
}

TEST(SecureHandshake, eachConnectionHasKeysAndACodeOfItsOwn) {
    Initiator initiator(phone);
    Responder responder(agent);
    auto [revealMessage, atPhone] = initiator.receive(responder.receive(initiator.commit()));
    auto atAgent = responder.finish(revealMessage);
    EXPECT_EQ(atPhone.code, atAgent.code);
    const auto box = atPhone.session->seal(bytesOf("hello"));
    EXPECT_NE(box, firstBoxOfPhone);
    EXPECT_EQ(textOf(atAgent.session->open(box)), "hello");
    EXPECT_NE(Initiator(phone).commit(), initiator.commit());
}

TEST(SecureHandshake, theCodeIsTheFirstThreeBytesModuloAMillionInSixDigits) {
    const struct {
        std::uint8_t first[3];
        const char* code;
    } rows[] = {{{0x00, 0x00, 0x00}, "000000"}, {{0x00, 0x00, 0x07}, "000007"},
                {{0x0F, 0x42, 0x3F}, "999999"}, {{0x0F, 0x42, 0x40}, "000000"},
                {{0x0F, 0x42, 0x41}, "000001"}, {{0xFF, 0xFF, 0xFF}, "777215"}};
    for (const auto& row : rows) {
        Digest digest;
        digest.fill(0xAA);
        std::copy(std::begin(row.first), std::end(row.first), digest.begin());
        EXPECT_EQ(SecureHandshake::pairingCode(digest), row.code);
    }
}

TEST(SecureHandshake, aRevealWithAnyBitFlippedIsNotWhatWasCommittedTo) {
    for (std::size_t bit = 0; bit < reveal.size() * 8; ++bit) {
        auto responder = committedResponder();
        Bytes flipped = reveal;
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        EXPECT_EQ(failureOf([&] { responder.finish(flipped); }), Code::commitMismatch) << bit;
    }
}

TEST(SecureHandshake, aCommitWithAnyBitFlippedFails) {
    for (std::size_t bit = 0; bit < commit.size() * 8; ++bit) {
        Responder responder(agent, agentEphemeral);
        Bytes flipped = commit;
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        const auto want = bit < 8 ? Code::malformed : Code::commitMismatch;
        EXPECT_EQ(failureOf([&] {
                      responder.receive(flipped);
                      responder.finish(reveal);
                  }),
                  want)
            << bit;
    }
}

// Also the top bits of both keys, which do not change the shared secrets, only the transcript.
TEST(SecureHandshake, keysOfTheAgentWithAnyBitFlippedGiveAChannelThatDoesNotOpen) {
    for (std::size_t bit = 0; bit < keys.size() * 8; ++bit) {
        Initiator initiator(phone, phoneEphemeral);
        Bytes flipped = keys;
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        auto atPhone = initiator.receive(flipped).result;
        auto atAgent = committedResponder().finish(reveal);
        EXPECT_THROW(atAgent.session->open(atPhone.session->seal(bytesOf("hello"))),
                     AuthenticationError)
            << bit;
    }
}

TEST(SecureHandshake, messagesOfAnotherLengthAreMalformed) {
    for (std::size_t length = 0; length <= 130; ++length) {
        SCOPED_TRACE(length);
        Bytes message(length, 1);
        if (length != SecureHandshake::commitLength) {
            EXPECT_EQ(failureOf([&] { Responder(agent).receive(message); }), Code::malformed);
        }
        if (length != SecureHandshake::revealLength) {
            EXPECT_EQ(failureOf([&] { committedResponder().finish(message); }), Code::malformed);
            EXPECT_EQ(failureOf([&] { Initiator(phone).receive(message); }), Code::malformed);
        }
    }
}

TEST(SecureHandshake, aKeyOfSmallOrderIsBadWhereverItStands) {
    for (const auto point : smallOrderPoints) {
        for (const bool topBit : {false, true}) {
            for (const std::size_t at : {0, 32}) {
                SCOPED_TRACE(testing::Message() << point << " top bit " << topBit << " at " << at);
                Bytes bad = hex(point);
                if (topBit) bad[31] |= 0x80;

                Bytes badReveal = reveal;
                std::copy(bad.begin(), bad.end(), badReveal.begin() + static_cast<long>(at));
                Responder responder(agent, agentEphemeral);
                responder.receive(commitTo(badReveal));
                EXPECT_EQ(failureOf([&] { responder.finish(badReveal); }), Code::badKey);

                Bytes badKeys = keys;
                std::copy(bad.begin(), bad.end(), badKeys.begin() + static_cast<long>(at));
                Initiator initiator(phone, phoneEphemeral);
                EXPECT_EQ(failureOf([&] { initiator.receive(badKeys); }), Code::badKey);
            }
        }
    }
}

TEST(SecureHandshake, whatComesOutOfTurnIsMalformedAndEveryFailureIsFinal) {
    using Step = std::function<void(Responder&)>;
    const Step validCommit = [](Responder& r) { r.receive(commit); };
    const Step validReveal = [](Responder& r) { r.finish(reveal); };
    const Step shortCommit = [](Responder& r) { r.receive(ByteView(commit).first(32)); };
    const Step shortReveal = [](Responder& r) { r.finish(ByteView(reveal).first(63)); };
    const Step otherReveal = [](Responder& r) { r.finish(keys); };
    struct Row {
        const char* name;
        std::vector<Step> before;
        Step last;
    };
    const Row rows[] = {
        {"reveal first", {}, validReveal},
        {"second commit", {validCommit}, validCommit},
        {"second reveal", {validCommit, validReveal}, validReveal},
        {"commit after the end", {validCommit, validReveal}, validCommit},
        {"commit after a bad commit", {shortCommit}, validCommit},
        {"reveal after a bad commit", {shortCommit}, validReveal},
        {"reveal after a second commit", {validCommit, validCommit}, validReveal},
        {"commit after an early reveal", {validReveal}, validCommit},
        {"reveal after a short one", {validCommit, shortReveal}, validReveal},
        {"reveal after a mismatch", {validCommit, otherReveal}, validReveal},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Responder responder(agent, agentEphemeral);
        for (const auto& step : row.before)
            failureOf([&] { step(responder); });
        EXPECT_EQ(failureOf([&] { row.last(responder); }), Code::malformed);
    }

    for (const Bytes& first : {keys, Bytes(64, 0), Bytes{}}) {
        Initiator initiator(phone, phoneEphemeral);
        failureOf([&] { initiator.receive(first); });
        EXPECT_EQ(failureOf([&] { initiator.receive(keys); }), Code::malformed);
    }
}

}  // namespace
}  // namespace orvel
