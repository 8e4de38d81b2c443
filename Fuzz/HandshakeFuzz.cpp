// Somebody between a phone and an agent who runs their handshake in any order, keeps, changes,
// repeats and makes up messages, and may commit to keys of his own. The input is his script.

#include <algorithm>
#include <optional>

#include "Fuzz/Fuzz.h"
#include "Fuzz/Pieces.h"
#include "OrvelKit/Secure/SecureHandshake.h"

namespace orvel {
namespace {

using Failure = SecureHandshake::Failure;

PrivateKey fixedKey(std::uint8_t seed) {
    return PrivateKey::fromRaw(Bytes(32, seed)).value();
}

Bytes copyOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

void checkResult(const SecureHandshake::Result& result, ByteView peersMessage) {
    claim(result.session != nullptr, "a finished handshake has a session");
    claim(
        result.code.size() == 6 && result.code.find_first_not_of("0123456789") == std::string::npos,
        "the code has six digits");
    claim(std::ranges::equal(result.peerKey, peersMessage.first(PrivateKey::length)),
          "the peer's key is the one it sent");
}

class Exchange {
public:
    void run(Pieces script) {
        std::size_t position = 0;
        while (!script.isEmpty()) {
            switch (script.byte() % 9) {
                case 0:
                    message = initiator.commit();
                    break;
                case 1:
                    receiveAtAgent();
                    break;
                case 2:
                    receiveAtPhone();
                    break;
                case 3:
                    finishAtAgent();
                    break;
                case 4:
                    message = copyOf(script.piece());
                    break;
                case 5:
                    position = script.byte();
                    flip(position, script.byte());
                    break;
                case 6:
                    ownKeys = copyOf(script.piece());
                    message = {1};
                    append(message, sha256(ownKeys));
                    break;
                case 7:
                    message = ownKeys;
                    break;
                case 8:
                    message.resize(script.byte());
                    break;
            }
        }
        compareEnds();
    }

private:
    void flip(std::size_t position, std::uint8_t bits) {
        if (!message.empty()) message[position % message.size()] ^= bits;
    }

    void receiveAtAgent() {
        const bool mayWork = !agentTouched && message.size() == 33 && message[0] == 1;
        agentTouched = true;
        try {
            keysSent = responder.receive(message);
        } catch (const Failure& failure) {
            claim(!mayWork && failure.code == Failure::Code::malformed,
                  "a commit fails only when it is malformed or out of turn");
            agentFailed = true;
            return;
        }
        claim(mayWork, "one well-formed commit is accepted");
        committed = Bytes(message.begin() + 1, message.end());
        message = keysSent;
    }

    void finishAtAgent() {
        const bool inTurn = committed && !agentFailed && !atAgent;
        const bool matches =
            inTurn && message.size() == 64 && std::ranges::equal(sha256(message), *committed);
        agentTouched = true;
        try {
            auto result = responder.finish(message);
            claim(matches, "only what was committed to is accepted, once");
            checkResult(result, message);
            atAgent = std::move(result);
            revealReceived = message;
        } catch (const Failure& failure) {
            const auto want = !inTurn || message.size() != 64 ? Failure::Code::malformed
                              : !matches                      ? Failure::Code::commitMismatch
                                                              : Failure::Code::badKey;
            claim(failure.code == want, "each fault has its name");
            agentFailed = true;
        }
    }

    void receiveAtPhone() {
        const bool mayWork = !phoneTouched && message.size() == 64;
        phoneTouched = true;
        try {
            auto finished = initiator.receive(message);
            claim(mayWork, "one message of 64 bytes is accepted");
            checkResult(finished.result, message);
            atPhone = std::move(finished.result);
            keysReceived = message;
            message = revealSent = finished.reveal;
        } catch (const Failure& failure) {
            claim(failure.code == (mayWork ? Failure::Code::badKey : Failure::Code::malformed),
                  "each fault has its name");
        }
    }

    void compareEnds() {
        if (!atPhone || !atAgent) return;
        const bool untouched = keysReceived == keysSent && revealReceived == revealSent;
        if (untouched) claim(atPhone->code == atAgent->code, "both ends show one code");
        bool opened = true;
        try {
            atAgent->session->open(atPhone->session->seal(bytesOf("hello")));
        } catch (const AuthenticationError&) {
            opened = false;
        }
        claim(opened == untouched, "the ends share keys exactly when nobody touched the exchange");
    }

    SecureHandshake::Initiator initiator{Identity{fixedKey(1)}, fixedKey(2)};
    SecureHandshake::Responder responder{Identity{fixedKey(3)}, fixedKey(4)};
    Bytes message, ownKeys;  // in his hands: the last message; the keys that he committed to
    bool agentTouched = false, agentFailed = false, phoneTouched = false;
    std::optional<Bytes> committed;  // what the agent accepted
    Bytes keysSent, keysReceived, revealSent, revealReceived;
    std::optional<SecureHandshake::Result> atPhone, atAgent;
};

}  // namespace
}  // namespace orvel

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvel::Exchange().run(orvel::Pieces({data, size}));
    return 0;
}
