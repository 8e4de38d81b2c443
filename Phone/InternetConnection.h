#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/RealtimeChannel.h"
#include "OrvelKit/Relay/SignalMessage.h"
#include "OrvelKit/Secure/Identity.h"
#include "Phone/AgentLink.h"
#include "Phone/RelayAccount.h"
#include "Phone/Rtc/RtcPhone.h"

namespace orvel::phone {

// The phone's end of one connection to a paired agent over the internet: they find each other on
// the relay, then talk by WebRTC. Every call blocks at most for the time that it is given and may
// come from any thread; what arrives waits until next() or waitFor() takes it.
//
//     InternetConnection phone(identity, agentKey, {relay});
//     switch (phone.connect(Unlock::no)) { ... }
//     phone.send({hello});
//     const auto welcome = phone.waitFor<Welcome>(5s);
//
// What makes no sense on a data channel is dropped. Video comes as formats and frames, as on the
// local network, but for their times: those count from an arbitrary moment. WebRTC cannot be told
// to wait: when 64 MiB lie here untaken, the connection ends.
class InternetConnection : public AgentLink {
public:
    // Whether the phone's user wants a computer in standby unlocked.
    enum class Unlock { no, yes };
    enum class Outcome {
        connected,
        standby,      // the computer is there and has to be unlocked first
        noAnswer,     // of the relay, or of the computer on it: it is off, not there, or does not
                      // know this phone
        noConnection  // the computer answered, but no way to it was found, or it went: see closed()
    };

    struct Way {
        RelayConfig relay;
        // Whose TURN servers are used, with an account that is kept in the folder; nullopt: only
        // STUN servers are.
        std::optional<RelayProject> project = {};
        std::string stateFolder = {};
        bool relayOnly = false;  // only through a TURN server
        bool asksForVideo = false;
    };

    // `agentKey`: the paired agent's, 32 bytes.
    InternetConnection(Identity identity, Bytes agentKey, Way way);
    ~InternetConnection() override;  // close()
    InternetConnection(const InternetConnection&) = delete;
    InternetConnection& operator=(const InternetConnection&) = delete;

    // Finds the agent and opens the data channels; once, before anything else. Whatever is not
    // `connected` is the end.
    Outcome connect(Unlock unlock, Duration meeting = std::chrono::seconds(10),
                    Duration opening = std::chrono::seconds(20));

    // A longer message than this the other end's library answers by closing the channel.
    static constexpr std::size_t maxControl = 262'144;  // bytes of JSON

    // Throws TooLong above that. A request for a keyframe goes to the agent's encoder by
    // WebRTC's own way.
    void send(const Control& control) override;
    std::optional<Event> next(Duration timeout) override;
    std::optional<Closed> closed() const override;

    MonotonicTime connectStartedAt() const { return begin; }

    // Says goodbye and waits for the agent to end its side, at the latest for `patience`.
    void close(Duration patience = std::chrono::seconds(1));

private:
    enum class Stage { meeting, met, opening, open };  // met: the ICE servers are missing
    using Lock = std::unique_lock<std::mutex>;

    void probe() RUNS_ON(queue);
    void received(const Bytes& payload) RUNS_ON(queue);
    void obey(const SignalMessage& message) RUNS_ON(queue);
    void met() RUNS_ON(queue);
    void offer() RUNS_ON(queue);
    void say(const SignalMessage& message) RUNS_ON(queue);
    void channelChanged(RtcPhone::Channel which, bool isOpen) RUNS_ON(queue);
    void stateChanged(RtcPhone::State state) RUNS_ON(queue);
    void messageCame(RtcPhone::Channel which, const Bytes& message) RUNS_ON(queue);
    bool takePicture(const RtcPhones::CodedPicture& picture);
    void deliver(Event::Case value, std::size_t size);
    void end(Closed why);
    void settle(Outcome result);
    template <class Body>
    void runAndWait(Body body);

    const Identity identity;
    const Bytes agentKey;
    const std::string agentID, session;
    const Way way;
    MonotonicTime begin{};

    RtcPhones library;
    std::unique_ptr<RelayAccount> account;  // outlives the queue
    std::unique_ptr<SerialQueue> ownQueue;
    SerialQueue& queue;
    std::shared_ptr<RealtimeChannel> channel OWNED_BY(queue);
    std::unique_ptr<RtcPhone> rtc OWNED_BY(queue);
    std::optional<std::vector<IceServer>> iceServers OWNED_BY(queue);
    Timer nextProbe OWNED_BY(queue);  // or the end of the wait for the ICE servers
    Stage stage OWNED_BY(queue) = Stage::meeting;
    Unlock unlocks OWNED_BY(queue) = Unlock::no;
    int openChannels OWNED_BY(queue) = 0;

    // The library's decoding thread's.
    VideoFormat format;
    std::optional<std::uint32_t> lastTime;  // of RTP
    std::uint64_t ticks = 0;                // of RTP's clock, without its coming around
    std::atomic<bool> wantsKeyframe = false;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::deque<std::pair<Event, std::size_t>> waiting;
    std::size_t waitingBytes = 0;
    std::optional<Closed> ended;
    std::optional<Outcome> outcome;
    bool hasMet = false;
    bool isControlClosed = false;
};

}  // namespace orvel::phone
