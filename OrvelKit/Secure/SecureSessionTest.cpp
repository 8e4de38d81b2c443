#include "OrvelKit/Secure/SecureSession.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <latch>
#include <thread>

#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Secure/SecureTestKit.h"
#include "OrvelKit/Wire/FrameParser.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {
namespace {

const SymmetricKey keyA = {1, 2, 3}, keyB = {4, 5, 6};

struct Ends {
    SecureSession phone{keyA, keyB}, agent{keyB, keyA};
};

// The library's own calls in their plainest order, a fresh context for each box.
Bytes plainBox(ByteView key, ByteView nonce, ByteView associated, ByteView plaintext) {
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    Bytes box(plaintext.size() + 16);
    int written = 0;
    EXPECT_EQ(1, EVP_EncryptInit_ex(context.get(), EVP_chacha20_poly1305(), nullptr, key.data(),
                                    nonce.data()));
    if (!associated.empty()) {
        EXPECT_EQ(1, EVP_EncryptUpdate(context.get(), nullptr, &written, associated.data(),
                                       static_cast<int>(associated.size())));
    }
    EXPECT_EQ(1, EVP_EncryptUpdate(context.get(), box.data(), &written, plaintext.data(),
                                   static_cast<int>(plaintext.size())));
    EXPECT_EQ(1, EVP_EncryptFinal_ex(context.get(), box.data() + written, &written));
    EXPECT_EQ(1, EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, 16,
                                     box.data() + plaintext.size()));
    return box;
}

Bytes patterned(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8));
    return bytes;
}

TEST(SecureSession, theComparisonGivesTheStandardsBox) {  // RFC 8439, section 2.8.2
    EXPECT_EQ(
        plainBox(hex("808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f"),
                 hex("07000000 4041424344454647"), hex("50515253c0c1c2c3c4c5c6c7"),
                 bytesOf("Ladies and Gentlemen of the class of '99: If I could offer you only one "
                         "tip for the future, sunscreen would be it.")),
        hex("d31a8d34648e60db7b86afbc53ef7ec2a4aded51296e08fea9e2b5a736ee62d6"
            "3dbea45e8ca9671282fafb69da92728b1a71de0a9e060b2905d6a5b67ecd3b36"
            "92ddbd7f2d778b8c9803aee328091b58fab324e4fad675945585808b4831d7bc"
            "3ff4def08e4b7a9de576d26586cec64b6116 1ae10b594f09e26a7e902ecbd0600691"));
}

// RFC 8439, appendix A.1, vector 2: the key stream for a key and a nonce of zeros.
TEST(SecureSession, theFirstBoxHasANonceOfZeros) {
    SecureSession session({}, {});
    const auto box = session.seal(Bytes(64, 0));
    EXPECT_EQ(copyOf(ByteView(box).first(64)),
              hex("9f07e7be5551387a98ba977c732d080dcb0f29a048e3656912c6533e32ee7aed"
                  "29b721769ce64e43d57133b074d839d531ed1f28510afb45ace10a1f4b794d6f"));
}

TEST(SecureSession, everyBoxIsTheStandardCiphersWithItsNumberAsNonce) {
    SecureSession session(keyA, keyB);
    for (std::uint64_t counter = 0; counter < 600; ++counter) {
        Bytes nonce(12, 0);
        nonce[10] = static_cast<std::uint8_t>(counter >> 8);
        nonce[11] = static_cast<std::uint8_t>(counter);
        const auto plaintext = patterned(counter);
        ASSERT_EQ(session.seal(plaintext), plainBox(keyA, nonce, {}, plaintext)) << counter;
    }
}

TEST(SecureSession, everyLengthSurvives) {
    Ends ends;
    std::uint64_t counter = 0;
    for (const std::size_t length :
         {0, 1, 15, 16, 17, 63, 64, 65, 65536, 65541, 1 << 20, (1 << 20) + 1, 2 << 20}) {
        SCOPED_TRACE(length);
        const auto plaintext = patterned(length);
        Bytes nonce(12, 0);
        nonce[11] = static_cast<std::uint8_t>(counter++);
        auto box = ends.phone.seal(plaintext);
        EXPECT_EQ(box.size(), length + 16);
        EXPECT_EQ(box, plainBox(keyA, nonce, {}, plaintext));
        EXPECT_EQ(ends.agent.open(box), plaintext);

        auto answer = ends.agent.seal(plaintext);
        const auto opened = ends.phone.openInPlace(answer);
        EXPECT_EQ(opened.data(), answer.data());
        EXPECT_EQ(copyOf(opened), plaintext);
    }
}

TEST(SecureSession, aFrameSealedInPlaceIsASealedFrameAroundIt) {
    for (const std::size_t length : {0, 1, 300, 70000}) {
        SCOPED_TRACE(length);
        Ends ends, other;
        FrameBuffer buffer(FrameKind::videoFrame, patterned(length));
        const Bytes inner = copyOf(buffer.frame());
        const auto wire = ends.agent.sealFrame(buffer);
        EXPECT_EQ(wire.data(), buffer.whole().data());
        EXPECT_EQ(copyOf(wire), Framing::encode(FrameKind::sealed, other.agent.seal(inner)));

        auto frames = FrameParser().feed(wire);
        ASSERT_EQ(frames.size(), 1u);
        const auto plaintext = ends.phone.openInPlace(frames[0].payload);
        EXPECT_EQ(FrameParser().feed(plaintext),
                  (std::vector{Frame{FrameKind::videoFrame, patterned(length)}}));
    }
}

TEST(SecureSessionDeathTest, aFrameSealedTwiceStopsTheProcess) {
    SecureSession session(keyA, keyB);
    FrameBuffer buffer(FrameKind::control, bytesOf("{}"));
    session.sealFrame(buffer);
    EXPECT_DEATH(session.sealFrame(buffer), "sealed twice");
}

enum class Outcome { opens, malformed, unauthentic };

Outcome outcomeOf(SecureSession& session, ByteView box, ByteView want) {
    try {
        EXPECT_EQ(copyOf(session.open(box)), copyOf(want));
        return Outcome::opens;
    } catch (const SecureHandshake::Failure& failure) {
        EXPECT_EQ(failure.code, SecureHandshake::Failure::Code::malformed);
        return Outcome::malformed;
    } catch (const AuthenticationError&) {
        return Outcome::unauthentic;
    }
}

TEST(SecureSession, boxesOpenInOrderEachOnceAndAFailureChangesNothing) {
    using enum Outcome;
    const Bytes plaintexts[] = {{}, patterned(1), patterned(1000)};
    struct Row {
        const char* name;
        std::vector<std::pair<int, Outcome>> steps;  // box number, or -1: 15 bytes
    };
    const Row rows[] = {
        {"in order", {{0, opens}, {1, opens}, {2, opens}}},
        {"a replay", {{0, opens}, {0, unauthentic}, {1, opens}, {0, unauthentic}}},
        {"the second first", {{1, unauthentic}, {0, opens}, {1, opens}}},
        {"one lost", {{0, opens}, {2, unauthentic}, {2, unauthentic}, {1, opens}, {2, opens}}},
        {"one too short", {{-1, malformed}, {0, opens}, {-1, malformed}, {1, opens}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Ends ends;
        std::vector<Bytes> boxes;
        for (const auto& plaintext : plaintexts)
            boxes.push_back(ends.phone.seal(plaintext));
        for (const auto& [number, want] : row.steps) {
            SCOPED_TRACE(number);
            const auto index = static_cast<std::size_t>(std::max(number, 0));
            const auto box = number < 0 ? ByteView(boxes[2]).first(15) : ByteView(boxes[index]);
            EXPECT_EQ(outcomeOf(ends.agent, box, plaintexts[index]), want);
        }
    }
}

TEST(SecureSession, aBoxDamagedAnywhereCutOrFromElsewhereDoesNotOpen) {
    Ends ends;
    const auto plaintext = patterned(40);
    const auto box = ends.phone.seal(plaintext);
    for (std::size_t bit = 0; bit < box.size() * 8; ++bit) {
        Bytes damaged = box;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        EXPECT_EQ(outcomeOf(ends.agent, damaged, {}), Outcome::unauthentic) << bit;
    }
    for (std::size_t length = 0; length < box.size(); ++length) {
        const auto want = length < 16 ? Outcome::malformed : Outcome::unauthentic;
        EXPECT_EQ(outcomeOf(ends.agent, ByteView(box).first(length), {}), want) << length;
    }
    Bytes longer = box;
    longer.push_back(0);
    EXPECT_EQ(outcomeOf(ends.agent, longer, {}), Outcome::unauthentic);
    EXPECT_EQ(outcomeOf(ends.phone, box, {}), Outcome::unauthentic) << "the other direction's key";

    Bytes damaged = box;
    damaged.back() ^= 1;
    EXPECT_THROW(ends.agent.openInPlace(damaged), AuthenticationError);
    EXPECT_EQ(outcomeOf(ends.agent, box, plaintext), Outcome::opens) << "after all that";
    EXPECT_EQ(ERR_peek_error(), 0u) << "left behind for the thread's next TLS call";
}

TEST(SecureSession, boxesSealedByManyThreadsHaveDistinctNumbersWithoutGaps) {
    Ends ends;
    constexpr std::size_t threadCount = 4, boxesEach = 100;
    std::vector<Bytes> sealed[threadCount];
    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (std::size_t i = 0; i < boxesEach; ++i)
                sealed[t].push_back(ends.phone.seal(patterned(100 * t + i)));
        });
    }
    for (auto& thread : threads)
        thread.join();

    // Each thread's boxes are in counter order: the next box is at the head of one of the lists.
    std::size_t heads[threadCount] = {};
    for (std::size_t counter = 0; counter < threadCount * boxesEach; ++counter) {
        const bool opened = std::any_of(std::begin(heads), std::end(heads), [&](std::size_t& head) {
            const auto t = static_cast<std::size_t>(&head - heads);
            if (head == boxesEach || outcomeOf(ends.agent, sealed[t][head],
                                               patterned(100 * t + head)) != Outcome::opens) {
                return false;
            }
            ++head;
            return true;
        });
        ASSERT_TRUE(opened) << "no box with number " << counter;
    }
}

}  // namespace
}  // namespace orvel
