#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvelAgent/Core/ControlDispatch.h"
#include "OrvelAgent/Core/LanService.h"
#include "OrvelAgent/Core/PairedDevices.h"
#include "OrvelAgent/Core/Pairing.h"
#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelAgent/Core/RemotePresence.h"
#include "OrvelAgent/Core/VideoFlow.h"
#include "OrvelAgent/Media/ScreenStreamer.h"
#include "OrvelAgent/Platform/HostInfo.h"
#include "OrvelAgent/Platform/Permissions.h"
#include "OrvelAgent/Platform/Power.h"
#include "OrvelKit/Base/Defaults.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The agent's coordinator. It owns the links to phones, of which at most one is active: that one is
// obeyed and receives the screen; admitting a phone displaces the one before. Its subjects are
// types of their own (LanService, Pairing, PairedDevices, ControlDispatch, VideoFlow,
// ScreenStreamer); what is here is who is connected and what leads to what.
//
// One for each process, made with make(). Its state belongs to "orvel.agent"; public functions may
// be called from any thread and act there. Callbacks are set before start(), not changed after,
// and are called on the main queue.
class AgentCore : public std::enable_shared_from_this<AgentCore> {
public:
    struct Status {
        struct Starting {
            bool operator==(const Starting&) const = default;
        };
        struct Waiting {
            bool operator==(const Waiting&) const = default;
        };
        struct Connected {
            std::string name;
            bool internet = false;
            bool operator==(const Connected&) const = default;
        };
        struct Failed {
            std::string message;
            bool operator==(const Failed&) const = default;
        };
        std::variant<Starting, Waiting, Connected, Failed> value;
        bool operator==(const Status&) const = default;
    };

    using RemoteAccess = orvel::RemoteAccess;

    // What the core is made of. References outlive it, queues above all.
    struct Parts {
        SerialQueue& queue;         // "orvel.agent"
        SerialQueue& captureQueue;  // "orvel.capture"
        SerialQueue& audioQueue;    // "orvel.audio"
        SerialQueue& filesQueue;    // "orvel.files"
        SerialQueue& mainQueue;
        Defaults& defaults;
        SecretStore& secrets;
        Permissions& permissions;
        Power& power;
        HostInfo& host;
        EventPoster& poster;
        FileSystem& files;
        std::unique_ptr<ScreenSource> screen;  // made with captureQueue and audioQueue
        CompressionSession::Factory compression;
        std::unique_ptr<Listener> listener;             // on `queue`
        std::unique_ptr<ServiceAdvertiser> advertiser;  // null: not advertised
        RemotePresence::Parts remote;                   // the way in from the internet
    };
    struct Options {
        std::optional<std::string> name;  // instead of the computer's
        std::uint16_t port = Orvel::port;
        std::string address;  // to listen on; empty: all
    };

    static std::shared_ptr<AgentCore> make(Parts parts, const Options& options);
    ~AgentCore();

    std::function<void(Status)> onStatus;
    std::function<void(std::optional<std::string>)> onPairingCode;        // nullopt hides it
    std::function<void(std::optional<PairingRequest>)> onPairingRequest;  // nullopt: withdrawn
    std::function<void(bool)> onRelay;             // reachable through the relay, or not
    std::function<void(std::string)> onClipboard;  // text that the phone puts on the clipboard
    std::function<void(std::vector<PairedDevice>)> onDevices;
    // A phone has unlocked the way in from the internet until then; nullopt: locked again.
    std::function<void(std::string name, std::optional<WallTime> until)> onUnlock;
    std::function<void(std::uint16_t port)> onListening;

    const std::string macName;  // the computer's name, "Mac" when it has none
    const Identity identity;
    const std::string agentVersion;  // "short (build)", "?" for what is missing

    void start();  // once
    // Ends every link, the service and the capture; `completion` comes on the main queue.
    void shutDown(std::function<void()> completion);

    void disconnect();  // ends the active link, if any
    void forget(const std::string& deviceID);
    void forgetAll();
    // Refuses the phone whose pairing is shown.
    void rejectPairing();
    // Admits the phone that waits under this device ID, if it still does.
    void allowPairing(const std::string& deviceID);
    // `completion` comes on the main queue: reports of before it come earlier.
    void setRemoteAccess(RemoteAccess mode, std::function<void()> completion = {});

    // What happens on this computer: told to the active phone, if there is one.
    void sendClipboard(std::string text);
    void sendFrontApp(std::string bundleID, std::string name);
    void sendTextFocus(bool focused);

private:
    AgentCore(Parts parts, const Options& options);
    void wire();

    void sessionArrived(std::shared_ptr<ClientSession> session) RUNS_ON(queue);
    void sessionSecured(const std::shared_ptr<ClientSession>& session) RUNS_ON(queue);
    void linkEnded(const PhoneLink& link) RUNS_ON(queue);

    void handleHello(PhoneLink& link, const Hello& hello) RUNS_ON(queue);
    void pair(const std::shared_ptr<ClientSession>& session, const Hello& hello) RUNS_ON(queue);
    void handleLanHello(const std::shared_ptr<ClientSession>& session, const Hello& hello)
        RUNS_ON(queue);
    void handleInternetHello(const std::shared_ptr<RTCPhoneSession>& session, const Hello& hello)
        RUNS_ON(queue);
    void admitLocally(const std::shared_ptr<ClientSession>& session, const Hello& hello)
        RUNS_ON(queue);
    void admit(const std::shared_ptr<PhoneLink>& link, const Hello& hello) RUNS_ON(queue);
    void internetSessionArrived(const std::shared_ptr<RTCPhoneSession>& session) RUNS_ON(queue);
    void startCapture(const std::shared_ptr<PhoneLink>& link, bool isAdmission) RUNS_ON(queue);
    void sendWelcome(PhoneLink& link, const ScreenStreamer::Display& display) RUNS_ON(queue);
    void selectDisplay(PhoneLink& link, std::uint32_t displayID) RUNS_ON(queue);
    void sendVideo(FrameBuffer frame, bool isKeyframe) RUNS_ON(queue);
    void sendAudio(const AudioPacket& packet) RUNS_ON(queue);
    void tellPhone(Control control);

    void setStatus(Status status) RUNS_ON(queue);
    void publishDevices() RUNS_ON(queue);
    std::shared_ptr<PhoneLink> linkOf(const PhoneLink& link) const RUNS_ON(queue);
    bool isActive(const PhoneLink& link) const RUNS_ON(queue);

    // Runs `action` with the core as a task of the queue, unless it is gone by then.
    void onQueue(UniqueFunction<void(AgentCore&)> action);
    void onMain(UniqueFunction<void(AgentCore&)> action);

    SerialQueue& queue;
    SerialQueue& mainQueue;
    Defaults& defaults;
    Permissions& permissions;
    Power& power;
    const Options options;

    const std::shared_ptr<ScreenStreamer> streamer;
    LanService lan OWNED_BY(queue);
    PairedDevices devices OWNED_BY(queue);
    Pairing pairing OWNED_BY(queue);
    const std::shared_ptr<RemotePresence> remote;
    ControlDispatch dispatch OWNED_BY(queue);
    VideoFlow videoFlow OWNED_BY(queue);

    std::map<const PhoneLink*, std::shared_ptr<PhoneLink>> links OWNED_BY(queue);
    std::shared_ptr<PhoneLink> active OWNED_BY(queue);
    bool welcomed OWNED_BY(queue) = false;  // the active link: earlier pictures are not its own
    ScreenStreamer::CaptureID capture OWNED_BY(queue) = 0;  // the active link's
    std::optional<std::uint32_t> selectedDisplay OWNED_BY(queue);
    int streamPixels OWNED_BY(queue);
};

}  // namespace orvel
