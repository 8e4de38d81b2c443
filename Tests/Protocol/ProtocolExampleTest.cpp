// The examples of Docs/Protocol.md are what the code sends and reads.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "OrvelKit/Base/HexForTests.h"
#include "OrvelKit/Relay/SignalEnvelope.h"
#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Files.h"
#include "OrvelKit/Wire/Framing.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel {
namespace {

std::string document() {
    std::ostringstream text;
    text << std::ifstream(PROTOCOL_DOCUMENT).rdbuf();
    return text.str();
}

// Whether the bytes stand in the document, however they are spaced and broken into lines.
bool documentShows(ByteView bytes) {
    static const std::string dense = [] {
        std::string text = document();
        std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
        return text;
    }();
    return dense.find(toHex(bytes)) != std::string::npos;
}

PrivateKey countingFrom(std::uint8_t first) {
    Bytes raw(PrivateKey::length);
    for (std::size_t i = 0; i < raw.size(); ++i)
        raw[i] = static_cast<std::uint8_t>(first + i);
    return PrivateKey::fromRaw(raw).value();
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes whole;
    for (const Bytes& part : parts)
        append(whole, part);
    return whole;
}

const Identity phone{countingFrom(0x01)}, agent{countingFrom(0x41)};
const PrivateKey phoneEphemeral = countingFrom(0x21), agentEphemeral = countingFrom(0x61);

const Control firstHello{Hello{2, "vkup75ydwufsff7u", "Phone", std::nullopt, 1920, std::nullopt}};

TEST(ProtocolDocument, controlsAreWrittenAndReadAsShown) {
    std::istringstream lines(document());
    std::set<std::size_t> shown;
    bool inJson = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            inJson = line == "```json";
        } else if (inJson) {
            SCOPED_TRACE(line);
            const Control control = Control::fromJson(line);
            EXPECT_EQ(control.toJson(), line);
            shown.insert(control.value.index());
        }
    }
    EXPECT_EQ(shown.size(), std::variant_size_v<Control::Case>);
}

// The lines of the blocks that begin with ```json and this.
std::vector<std::string> examples(const std::string& kind) {
    std::vector<std::string> found;
    std::istringstream lines(document());
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            inside = line == "```json " + kind;
        } else if (inside) {
            found.push_back(line);
        }
    }
    return found;
}

TEST(ProtocolDocument, signalsAreWrittenAndReadAsShown) {
    std::set<std::size_t> shown;
    for (const auto& line : examples("signal")) {
        SCOPED_TRACE(line);
        const auto message = SignalMessage::fromJson(line);
        EXPECT_EQ(message.toJson(), line);
        shown.insert(message.value.index());
    }
    EXPECT_EQ(shown.size(), std::variant_size_v<SignalMessage::Case>);
}

TEST(ProtocolDocument, theEnvelopeOpensAsShown) {
    const auto lines = examples("envelope");
    ASSERT_EQ(lines.size(), 1u);
    const auto envelope = SignalEnvelope::fromJson(lines[0]);
    EXPECT_EQ(envelope.toJson(), lines[0]);
    const auto message = envelope.open(
        agent, [](const auto&) { return phone.publicKey(); },
        WallTime(std::chrono::seconds(1731715200)));
    EXPECT_EQ(message, SignalMessage{SignalMessage::Probe{}});
}

TEST(ProtocolDocument, framesAndPayloadsHaveTheBytesShown) {
    EXPECT_TRUE(documentShows(Framing::encode(FrameKind::control, bytesOf("{}"))));
    EXPECT_TRUE(documentShows(Framing::encode(FrameKind::handshake, {})));
    EXPECT_TRUE(documentShows(FrameBuffer(FrameKind::file, 300).frame().first(5)));

    EXPECT_TRUE(documentShows(VideoFormat{{hex("6764002a"), hex("68ce")}}.encode().frame()));
    EXPECT_TRUE(documentShows(VideoFrame{true, 258, hex("00000002 6588")}.encode().frame()));
    EXPECT_TRUE(documentShows(AudioPacket{1, hex("fc01")}.encode().frame()));
    EXPECT_TRUE(documentShows(FileFrame{7, FileFrame::Start{"note", 3}}.encode().frame()));
    EXPECT_TRUE(documentShows(FileFrame{7, FileFrame::Data{hex("616263")}}.encode().frame()));
    EXPECT_TRUE(documentShows(FileFrame{7, FileFrame::End{}}.encode().frame()));
}

TEST(ProtocolDocument, theWorkedSessionIsWhatBothSidesDo) {
    SecureHandshake::Initiator initiator(phone, phoneEphemeral);
    SecureHandshake::Responder responder(agent, agentEphemeral);
    const Bytes commit = initiator.commit();
    const Bytes keys = responder.receive(commit);
    auto [reveal, atPhone] = initiator.receive(keys);
    auto atAgent = responder.finish(reveal);
    for (const Bytes& message : {commit, keys, reveal})
        EXPECT_TRUE(documentShows(Framing::encode(FrameKind::handshake, message)));

    FrameBuffer hello = FrameBuffer::control(firstHello);
    const ByteView helloBox = atPhone.session->sealFrame(hello);
    EXPECT_TRUE(documentShows(helloBox));
    FrameBuffer ping = FrameBuffer::control({Control::Ping{1}});
    EXPECT_TRUE(documentShows(atPhone.session->sealFrame(ping)));
    FrameBuffer rejected = FrameBuffer::control({Control::Rejected{Rejection::pinRequired}});
    EXPECT_TRUE(documentShows(atAgent.session->sealFrame(rejected)));

    const Bytes opened = atAgent.session->open(helloBox.subspan(Framing::headerLength));
    EXPECT_EQ(toHex(opened), toHex(Framing::encodeControl(firstHello)));
    const std::string text = document();
    EXPECT_NE(text.find("`" + atPhone.code + "`"), std::string::npos);
    EXPECT_EQ(atAgent.code, atPhone.code);
    EXPECT_NE(text.find(phone.fingerprint()), std::string::npos);
    EXPECT_NE(text.find(agent.fingerprint()), std::string::npos);
}

// Step by step as the document tells it, with nothing but the primitives; the boxes opened with
// these keys are those that the session above has sealed.
TEST(ProtocolDocument, theDerivationToldLeadsToTheValuesShown) {
    const Bytes phoneKeys = joined({phone.publicKey(), phoneEphemeral.publicKey()});
    const Bytes agentKeys = joined({agent.publicKey(), agentEphemeral.publicKey()});
    const Bytes s1 = phoneEphemeral.agree(agentEphemeral.publicKey()).value();
    const Bytes s2 = phone.privateKey.agree(agentEphemeral.publicKey()).value();
    const Bytes s3 = phoneEphemeral.agree(agent.publicKey()).value();
    EXPECT_EQ(s1, agentEphemeral.agree(phoneEphemeral.publicKey()).value());
    EXPECT_EQ(s2, agentEphemeral.agree(phone.publicKey()).value());
    EXPECT_EQ(s3, agent.privateKey.agree(phoneEphemeral.publicKey()).value());

    const Digest salt = sha256(joined({phoneKeys, agentKeys}));
    const Bytes input = joined({s1, s2, s3});
    const Bytes fromPhone = hkdfSha256(input, salt, bytesOf("orvel-lan-v1 phone->mac"), 32);
    const Bytes fromAgent = hkdfSha256(input, salt, bytesOf("orvel-lan-v1 mac->phone"), 32);
    Bytes codeInput(salt.begin(), salt.end());
    append(codeInput, bytesOf("orvel-pairing-code"));
    const Digest codeDigest = sha256(codeInput);
    for (const ByteView value : {ByteView(s1), ByteView(s2), ByteView(s3), ByteView(salt),
                                 ByteView(fromPhone), ByteView(fromAgent), ByteView(codeDigest)}) {
        EXPECT_TRUE(documentShows(value)) << toHex(value);
    }
    EXPECT_EQ(SecureHandshake::pairingCode(codeDigest), "734527");

    SymmetricKey phoneToAgent, agentToPhone;
    std::copy(fromPhone.begin(), fromPhone.end(), phoneToAgent.begin());
    std::copy(fromAgent.begin(), fromAgent.end(), agentToPhone.begin());
    SecureSession session(phoneToAgent, agentToPhone);
    FrameBuffer hello = FrameBuffer::control(firstHello);
    EXPECT_TRUE(documentShows(session.sealFrame(hello)));
}

}  // namespace
}  // namespace orvel
