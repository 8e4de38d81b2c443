#pragma once

#include <exception>
#include <memory>
#include <string>

#include "OrvelKit/Secure/Identity.h"
#include "OrvelKit/Secure/SecureSession.h"

namespace orvel {

// The three-message key agreement before anything else crosses a LAN connection. The phone
// commits to its keys before it sees the agent's, so neither side can choose its keys to steer the
// six-digit code. Messages are the payloads of `handshake` frames; Docs/Protocol.md has their
// bytes.
struct SecureHandshake {
    // 1 commit, phone to agent; 2 keys, agent to phone; 3 reveal, phone to agent.
    static constexpr std::size_t commitLength = 33, keysLength = 64, revealLength = 64;

    struct Failure : std::exception {
        enum class Code { malformed, commitMismatch, badKey } code;
        explicit Failure(Code failureCode) : code(failureCode) {}
        bool operator==(const Failure& other) const { return code == other.code; }
        const char* what() const noexcept override;
    };

    struct Result {
        std::unique_ptr<SecureSession> session;
        Bytes peerKey;     // the peer's long-term public key, 32 bytes
        std::string code;  // six digits, the same on both ends
    };

    // fresh --receive--> committed --finish--> finished. Any failure is final.
    class Responder {
    public:
        // A test passes its own `ephemeral` to reproduce a known result.
        explicit Responder(Identity identity, PrivateKey ephemeral = PrivateKey::generate());

        Bytes receive(ByteView commitMessage);  // only when fresh; throws Failure
        Result finish(ByteView revealMessage);  // only when committed; throws Failure

    private:
        enum class State { fresh, committed, finished };
        State state = State::fresh;
        Identity identity;
        PrivateKey ephemeral;
        Bytes commitment;
    };

    // fresh --commit--> committed --receive--> finished.
    class Initiator {
    public:
        explicit Initiator(Identity identity, PrivateKey ephemeral = PrivateKey::generate());

        struct Finished {
            Bytes reveal;  // message 3
            Result result;
        };
        Bytes commit() const;                    // message 1
        Finished receive(ByteView keysMessage);  // throws Failure

    private:
        Identity identity;
        PrivateKey ephemeral;
    };

    // From the salt of a handshake; exposed for its known values.
    static std::string pairingCode(ByteView digest);
};

}  // namespace orvel
