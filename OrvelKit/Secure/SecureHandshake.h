#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Secure/Identity.h"
#include "OrvelKit/Secure/SecureSession.h"

namespace orvel {

// The three-message key agreement before anything else crosses a LAN connection. The phone
// commits to its keys before it sees the agent's, so within one exchange neither side can choose
// its keys to steer the six-digit code; how many exchanges a stranger may begin is for the owner
// to limit. Messages are the payloads of `handshake` frames; Docs/Protocol.md has their bytes.
//
// One object per connection, used from that connection's queue only. Every failure is a Failure
// and final: the object refuses all that follows, and its owner ends the connection. A message
// that comes out of turn is `malformed` like any other nonsense. Ephemeral keys are dropped as
// soon as the session keys are derived, or with the object.
struct SecureHandshake {
    // 1 commit, phone to agent; 2 keys, agent to phone; 3 reveal, phone to agent.
    static constexpr std::size_t commitLength = 33, keysLength = 64, revealLength = 64;

    struct Failure : std::exception {
        enum class Code {
            malformed,       // wrong length, wrong first byte, or out of turn
            commitMismatch,  // the keys revealed are not the ones committed to
            badKey           // a public key of small order: no secret can be agreed with it
        } code;
        explicit Failure(Code failureCode) : code(failureCode) {}
        bool operator==(const Failure& other) const { return code == other.code; }
        const char* what() const noexcept override;
    };

    struct Result {
        std::unique_ptr<SecureSession> session;
        Bytes peerKey;     // the peer's long-term public key, 32 bytes
        std::string code;  // six digits, the same on both ends
    };

    // The agent's side. fresh --receive--> committed --finish--> finished.
    class Responder {
    public:
        // A test passes its own `ephemeral` to reproduce a known result.
        explicit Responder(Identity identity, PrivateKey ephemeral = PrivateKey::generate());

        Bytes receive(ByteView commitMessage);  // message 2; only when fresh; throws Failure
        Result finish(ByteView revealMessage);  // only when committed; throws Failure

    private:
        enum class State { fresh, committed, finished };
        State state = State::fresh;
        Identity identity;
        std::optional<PrivateKey> ephemeral;  // until finished
        Bytes commitment;
    };

    // The phone's side. The caller sends commit() first, then receives once.
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
        std::optional<PrivateKey> ephemeral;  // until something was received
        Bytes reveal;
    };

    // The six digits that a digest stands for: its first three bytes as a big-endian number, modulo
    // 1,000,000. (Values below 777,216 are a little likelier than the rest; so be it.)
    static std::string pairingCode(const Digest& digest);
};

}  // namespace orvel
