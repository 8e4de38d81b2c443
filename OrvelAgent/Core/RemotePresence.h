#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Core/PairedDevices.h"
#include "OrvelAgent/Core/RTCPhoneSession.h"
#include "OrvelAgent/Core/SeenEnvelopes.h"
#include "OrvelKit/Base/Defaults.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/IceServerProvider.h"
#include "OrvelKit/Relay/RealtimeChannel.h"
#include "OrvelKit/Relay/SignalEnvelope.h"

namespace orvel {

// Whether paired phones reach this computer from anywhere: always; after one of them has unlocked
// it, for an hour; not at all. The user default "remoteAccess".
enum class RemoteAccess { on, standby, off };

const char* rawValue(RemoteAccess mode);
std::optional<RemoteAccess> remoteAccessFrom(const std::string& rawValue);
RemoteAccess storedRemoteAccess(Defaults& defaults);  // "on" when nothing sensible is

// This computer's presence at the relay: it listens on its topic, answers paired phones there as
// the policy says, and makes a session of each offer that is accepted. Who is admitted on a session
// and what a phone may do there is not its business.
//
//   standby: locked -- unlock --> unlocked for an hour -- an admitted session ends, the policy is
//   set, the hour is over --> locked
//
// Whoever is not paired hears nothing. Envelopes open as often as they are shown, so an unlock or
// an offer that was seen already does nothing again.
//
// Belongs to "orvel.agent"; every call and callback is there.
class RemotePresence : public std::enable_shared_from_this<RemotePresence> {
public:
    static constexpr std::chrono::seconds unlockTime{3600};
    static constexpr std::chrono::seconds admissionTime{180};  // then a session ends
    // Beyond these the oldest that is not admitted goes.
    static constexpr std::size_t maxSessions = 8, maxPendingOffers = 32;
    static constexpr std::size_t maxEarlyCandidates = 256;  // of an offer

    // What it is made of. References outlive it. The functions may be called on its queue; they may
    // answer on any.
    struct Parts {
        // Where the relay is; nullopt: it is not configured.
        std::function<std::optional<RelayConfig>()> relay;
        std::function<std::shared_ptr<RealtimeChannel>(const RelayConfig&,
                                                       const std::string& topic)>
            makeChannel;
        std::function<void(IceServerProvider::ServersHandler)> iceServers;
        std::function<void()> prefetchIceServers;
        PeerConnection::Factory makePeer;
    };

    RemotePresence(SerialQueue& queue, Parts parts, Defaults& defaults, PairedDevices& devices,
                   const Identity& identity, std::string macName);
    ~RemotePresence();

    // Installed before start().
    std::function<void(bool)> onRelay;  // listening on the topic or not
    // A phone has unlocked it until then; nullopt: the session of the phone of that name has ended,
    // and it is locked again.
    std::function<void(std::string name, std::optional<WallTime> until)> onUnlock;
    // A new session; its onControl is the receiver's to install, its onEnd is not.
    std::function<void(std::shared_ptr<RTCPhoneSession>)> onSession;
    std::function<void(const RTCPhoneSession&)> onSessionEnd;  // of one that was handed out
    std::function<bool()> isBusy;                              // a phone is connected

    void start();
    // Stored, then applied; locks standby. Off ends every session.
    void setMode(RemoteAccess mode);
    // The sessions end, the relay is left; nothing comes after that.
    void stop();

    RemoteAccess mode() const;

private:
    struct PendingOffer {
        std::string deviceID, sdp;
        std::vector<IceCandidate> candidates;
        std::uint64_t number;  // in the order of arrival
    };
    struct Session {
        std::shared_ptr<RTCPhoneSession> link;
        Timer admission;
        std::uint64_t number;
    };
    // Who said something, in which conversation.
    struct Sender {
        std::string deviceID, session;
    };

    void apply() RUNS_ON(queue);
    void joinRelay() RUNS_ON(queue);
    void leaveRelay() RUNS_ON(queue);
    void receive(const Bytes& payload) RUNS_ON(queue);
    void obey(const SignalMessage& message, const Sender& from, bool isRepeated) RUNS_ON(queue);
    void unlock(const Sender& from, bool isRepeated) RUNS_ON(queue);
    void offer(const Sender& from, const std::string& sdp) RUNS_ON(queue);
    void candidate(const Sender& from, const IceCandidate& candidate) RUNS_ON(queue);
    void serversArrived(const std::string& session, std::uint64_t number,
                        std::vector<IceServer> servers) RUNS_ON(queue);
    void open(const std::string& session, PendingOffer pending, std::vector<IceServer> servers)
        RUNS_ON(queue);
    void sessionEnded(const RTCPhoneSession& session) RUNS_ON(queue);
    void limitSessions() RUNS_ON(queue);

    bool isLocked() const RUNS_ON(queue);
    SignalMessage presence() const RUNS_ON(queue);  // here, or standby
    void reply(const Sender& to, const SignalMessage& message) RUNS_ON(queue);
    RTCPhoneSession* sessionOf(const Sender& sender) const RUNS_ON(queue);

    SerialQueue& queue;
    const Parts parts;
    Defaults& defaults;
    PairedDevices& devices OWNED_BY(queue);
    const Identity& identity;
    const std::string macName;

    std::shared_ptr<RealtimeChannel> channel OWNED_BY(queue);  // null: off, or not configured
    std::optional<RemoteAccess> unstoredMode OWNED_BY(queue);  // set when nothing could be written
    std::optional<WallTime> unlockedUntil OWNED_BY(queue);
    std::map<std::string, Session> sessions OWNED_BY(queue);  // by conversation
    std::map<std::string, PendingOffer> pendingOffers OWNED_BY(queue);
    SeenEnvelopes seen OWNED_BY(queue);
    std::uint64_t lastNumber OWNED_BY(queue) = 0;
    bool stopped OWNED_BY(queue) = false;
};

}  // namespace orvel
