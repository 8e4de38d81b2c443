#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Core/AgentCore.h"
#include "OrvelAgent/Desk/ClipboardWatcher.h"
#include "OrvelAgent/Desk/FocusWatcher.h"

namespace orvel {

// The state behind whatever a person sees of the agent: a window or the lines of a headless run.
// It turns the core's callbacks into fields, watches the permissions, keeps the computer awake, and
// tells the phone what happens here: clipboard, application in front, focus in a text.
// Belongs to the main queue: every call, field and callback is there. Lives as long as the program.
class AgentModel : public std::enable_shared_from_this<AgentModel> {
public:
    static constexpr std::chrono::seconds permissionPollInterval{2};
    // From a session's end until what it used is given back; a connection that breaks is mostly
    // made again sooner.
    static constexpr std::chrono::seconds restDelay{10};

    struct Parts {
        SerialQueue& mainQueue;
        std::shared_ptr<AgentCore> core;
        Defaults& defaults;
        Permissions& permissions;
        Power& power;
        Pasteboard& pasteboard;
        Workspace& workspace;
        TextFocus& textFocus;
        std::function<void()> rest = [] {};  // no phone is connected, and none was of late
    };

    explicit AgentModel(Parts parts);

    // Told after the field of the same name has changed, in the core's order; set before start().
    std::function<void(std::uint16_t)> onListening;
    std::function<void(const AgentCore::Status&)> onStatus;
    std::function<void(const std::optional<std::string>&)> onPairingCode;
    std::function<void(const std::optional<PairingRequest>&)> onPairingRequest;
    std::function<void(const std::vector<PairedDevice>&)> onDevices;
    std::function<void(bool online)> onRelay;
    // A phone has opened the way in from the internet until then; nullopt: its session is over and
    // it is closed again.
    std::function<void(const std::string& name, const std::optional<WallTime>& until)> onUnlock;
    // Text that the phone has put on the clipboard; no field keeps it.
    std::function<void(const std::string&)> onClipboard;
    // A phone that was not paired when the model last heard is paired now.
    std::function<void(const PairedDevice&)> onNewlyPaired;

    void start();

    // What the user does.
    void setKeepAwake(bool keepAwake);  // stored, then applied
    void setRemoteAccess(AgentCore::RemoteAccess mode);
    void disconnect();
    void forget(const std::string& deviceID);
    void forgetAll();
    void rejectPairing();
    void allowPairing(const std::string& deviceID);
    // Ends all that runs; `completion` comes when the program may exit.
    void quit(std::function<void()> completion);

    // Read them on the main queue.
    AgentCore::Status status{AgentCore::Status::Starting{}};
    std::optional<std::string> pairingCode;
    std::optional<PairingRequest> pairingRequest;
    std::vector<PairedDevice> devices;
    bool screenGranted = false;
    bool accessibilityGranted = false;
    bool keepAwake = true;
    bool relayOnline = false;
    std::optional<WallTime> unlockedUntil;

private:
    void wire();
    void startWatchers();
    void statusArrived(AgentCore::Status newStatus);
    void pollPermissions();
    void applyKeepAwake();
    void devicesArrived(std::vector<PairedDevice> list);

    SerialQueue& mainQueue;
    const std::shared_ptr<AgentCore> core;
    Defaults& defaults;
    Permissions& permissions;
    Power& power;
    Pasteboard& pasteboard;
    const std::shared_ptr<FocusWatcher> focus;    // runs while a phone is connected
    std::shared_ptr<ClipboardWatcher> clipboard;  // from start() on
    std::uint32_t sleepAssertion = 0;             // 0: none held
    bool devicesKnown = false;  // the first list only tells what was paired before
    Timer poll;
    const std::function<void()> rest;
    Timer restTimer;  // runs from a session's end to the next one's begin
};

}  // namespace orvel
