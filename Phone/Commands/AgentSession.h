#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Phone/Commands/Command.h"
#include "Phone/InternetConnection.h"
#include "Phone/PhoneConnection.h"
#include "Phone/PhoneState.h"

namespace orvel::phone {

// A command's connection to the computer that is meant. Everything here throws CommandError with
// what to tell the user.
class AgentSession {
public:
    // The computer that is meant, and what is known.
    struct Choice {
        std::unique_ptr<PhoneState> state;
        std::vector<KnownAgent> known;
        AgentTarget target;
    };
    static Choice choose(const CommandContext& context);

    // Connects and runs the handshake. A computer whose key is not the one known for it is
    // refused before anything is said to it; with `replacesKey` a new key at a known address is
    // let pass, for pairing.
    static AgentSession open(const CommandContext& context, bool replacesKey = false) {
        return open(context, choose(context), replacesKey);
    }
    static AgentSession open(const CommandContext& context, Choice choice,
                             bool replacesKey = false);

    // Finds the paired computer on the relay and connects through it, as the settings say.
    enum class Video { wanted, unwanted };
    static AgentSession openOverInternet(const CommandContext& context, Choice choice, Video video);

    // The one or the other, for a command that shows the screen.
    static AgentSession openForVideo(const CommandContext& context);

    AgentLink& link() const;
    PhoneConnection& phone() { return *connection; }  // of open() only
    MonotonicTime connectStartedAt() const;
    // Whether the times of frames are of this machine's clock: not known over the internet.
    bool isSameMachine() const;
    PhoneState& state() { return *phoneState; }
    const std::string& name() const { return agentName; }
    const AgentAddress& address() const { return agentAddress; }
    // The paired computer that this is; nullopt: its key is not known.
    const std::optional<KnownAgent>& known() const { return knownAgent; }

    // Says hello and waits for the welcome; the computer is then known as being where it is.
    // Without a code the computer has to be known.
    struct Admission {
        Welcome welcome;
        std::vector<PhoneConnection::Event> early;  // media that came before the welcome
    };
    Admission admit(std::int64_t maxPixels, Duration patience);
    // The same with a code that has been compared; `onWaiting` is called when the answer does not
    // come at once.
    Admission admitWithCode(std::int64_t maxPixels, Duration patience,
                            const std::function<void()>& onWaiting);

    // Asks for another display and waits for the welcome to it. What came before is gone.
    Welcome selectDisplay(std::uint32_t id);

    // What to say about an end that the command did not want.
    CommandError endedError() const;
    RejectedError rejectedError(Rejection reason) const;

private:
    Admission greet(std::optional<std::string> code, std::int64_t maxPixels, Duration patience,
                    const std::function<void()>& onWaiting);
    void accept(const Welcome& welcome);
    Bytes agentKey() const;

    Console* console = nullptr;
    std::string phoneName;
    std::unique_ptr<PhoneState> phoneState;
    std::unique_ptr<PhoneConnection> connection;  // either this
    std::unique_ptr<InternetConnection> remote;   // or this
    std::string agentName;
    AgentAddress agentAddress;
    std::optional<KnownAgent> knownAgent;
};

}  // namespace orvel::phone
