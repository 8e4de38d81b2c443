#pragma once

#include <QObject>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/App/RemoteHistory.h"
#include "OrvelAgent/App/ShortTime.h"
#include "OrvelAgent/Core/AgentCore.h"
#include "OrvelAgent/Desk/ClipboardWatcher.h"
#include "OrvelAgent/Desk/FocusWatcher.h"
#include "OrvelAgent/Platform/Notifier.h"

namespace orvel {

// The state behind whatever a person sees of the agent: a panel, or the lines of a headless run.
// It turns the core's callbacks into properties, watches the permissions, keeps the computer awake,
// tells the user what phones do from afar, and tells the phone what happens here: clipboard,
// application in front, focus in a text.
//
// Belongs to the main queue: every call and signal is there, and time is that queue's. Signals are
// direct calls, so no event loop of Qt is needed. Lives as long as the program.
class AgentModel : public QObject, public std::enable_shared_from_this<AgentModel> {
    Q_OBJECT
    Q_PROPERTY(AgentCore::Status status READ status NOTIFY statusChanged)
    Q_PROPERTY(std::optional<std::string> pairingCode READ pairingCode NOTIFY pairingCodeChanged)
    Q_PROPERTY(std::optional<PairingRequest> pairingRequest READ pairingRequest NOTIFY
                   pairingRequestChanged)
    Q_PROPERTY(std::vector<PairedDevice> devices READ devices NOTIFY devicesChanged)
    Q_PROPERTY(bool relayOnline READ relayOnline NOTIFY relayOnlineChanged)
    Q_PROPERTY(bool screenGranted READ screenGranted NOTIFY screenGrantedChanged)
    Q_PROPERTY(
        bool accessibilityGranted READ accessibilityGranted NOTIFY accessibilityGrantedChanged)
    Q_PROPERTY(AgentCore::RemoteAccess remoteAccess READ remoteAccess WRITE setRemoteAccess NOTIFY
                   remoteAccessChanged)
    Q_PROPERTY(std::optional<WallTime> unlockedUntil READ unlockedUntil NOTIFY unlockedUntilChanged)
    Q_PROPERTY(std::vector<std::string> remoteEvents READ remoteEvents NOTIFY remoteEventsChanged)
    Q_PROPERTY(bool keepAwake READ keepAwake WRITE setKeepAwake NOTIFY keepAwakeChanged)

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
        Notifier& notifier;
        bool relayConfigured;
        std::function<void()> rest = [] {};  // no phone is connected, and none was of late
        // How times are written in what people read.
        std::function<std::string(WallTime)> timeText = [](WallTime time) {
            return shortTime(time);
        };
    };

    // Reads what is stored and granted.
    explicit AgentModel(Parts parts);

    const bool relayConfigured;  // there may be a way in from the internet
    const std::string macName;   // this computer's name, as phones see it

    void start();  // once; whoever connects to signals has done so

    const AgentCore::Status& status() const { return fields.status; }
    const std::optional<std::string>& pairingCode() const { return fields.pairingCode; }
    // A new phone gave the right code and waits for allowPairing() or rejectPairing(); only while
    // the user default "askBeforePairing" is on.
    const std::optional<PairingRequest>& pairingRequest() const { return fields.pairingRequest; }
    const std::vector<PairedDevice>& devices() const { return fields.devices; }
    bool relayOnline() const { return fields.relayOnline; }
    bool screenGranted() const { return fields.screenGranted; }
    bool accessibilityGranted() const { return fields.accessibilityGranted; }
    AgentCore::RemoteAccess remoteAccess() const { return fields.remoteAccess; }
    // In standby: until when a phone has opened the way in from the internet. Never in the past.
    const std::optional<WallTime>& unlockedUntil() const { return fields.unlockedUntil; }
    const std::vector<std::string>& remoteEvents() const { return history.lines(); }
    bool keepAwake() const { return fields.keepAwake; }
    // 0: not listening (yet).
    std::uint16_t listeningPort() const { return fields.listeningPort; }

    // What the user does.
    void setKeepAwake(bool keepAwake);                   // stored, then applied
    void setRemoteAccess(AgentCore::RemoteAccess mode);  // locks standby, also when it was standby
    void disconnect();
    void forget(const std::string& deviceID);
    void forgetAll();
    void rejectPairing();  // the phone whose code or request is shown
    void allowPairing(const std::string& deviceID);
    // Each asks the system and opens the page of its settings; false: there is none.
    bool requestScreenRecording();
    bool requestAccessibility();
    // Ends all that runs; `completion` comes when the program may exit.
    void quit(std::function<void()> completion);

Q_SIGNALS:
    // These come with each report of the core, in its order, also when it repeats itself.
    void statusChanged();
    void pairingCodeChanged();
    void pairingRequestChanged();
    void devicesChanged();
    void relayOnlineChanged();
    // These come with a change only.
    void screenGrantedChanged();
    void accessibilityGrantedChanged();
    void remoteAccessChanged();
    void unlockedUntilChanged();
    void remoteEventsChanged();
    void keepAwakeChanged();

    // What happened, where no property keeps it.
    void listening(std::uint16_t port);
    // A phone has opened the way in from the internet until then; nullopt: its session is over and
    // it is closed again. The properties have changed already.
    void unlockReported(const std::string& name, const std::optional<WallTime>& until);
    // Text that the phone has put on the clipboard.
    void clipboardArrived(const std::string& text);
    // A phone that was not paired when the model last heard is paired now.
    void newlyPaired(const PairedDevice& device);

private:
    struct Fields {
        AgentCore::Status status{AgentCore::Status::Starting{}};
        std::optional<std::string> pairingCode;
        std::optional<PairingRequest> pairingRequest;
        std::vector<PairedDevice> devices;
        bool relayOnline = false;
        bool screenGranted = false;
        bool accessibilityGranted = false;
        AgentCore::RemoteAccess remoteAccess;
        std::optional<WallTime> unlockedUntil;
        bool keepAwake;
        std::uint16_t listeningPort = 0;
    };

    void wire();
    void startWatchers();
    void statusArrived(AgentCore::Status newStatus);
    void devicesArrived(std::vector<PairedDevice> list);
    void unlockArrived(const std::string& name, const std::optional<WallTime>& until);
    void setUnlockedUntil(std::optional<WallTime> until);
    void record(const std::string& event);
    void pollPermissions();
    void schedulePoll();
    void applyKeepAwake();

    SerialQueue& mainQueue;
    const std::shared_ptr<AgentCore> core;
    Defaults& defaults;
    Permissions& permissions;
    Power& power;
    Pasteboard& pasteboard;
    Notifier& notifier;
    const std::function<void()> rest;
    const std::function<std::string(WallTime)> timeText;
    RemoteHistory history;
    Fields fields;

    const std::shared_ptr<FocusWatcher> focus;    // runs while a phone is connected
    std::shared_ptr<ClipboardWatcher> clipboard;  // from start() on
    std::uint32_t sleepAssertion = 0;             // 0: none held
    bool devicesKnown = false;  // the first list only tells what was paired before
    int modesUnderWay = 0;      // set, but not yet by the core
    Timer poll;
    Timer lockTimer;  // runs while unlocked, to the end of it
    Timer restTimer;  // runs from a session's end to the next one's begin
};

}  // namespace orvel
