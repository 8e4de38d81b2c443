#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Core/AgentCore.h"

namespace orvel {

// The state behind whatever a person sees of the agent: a window or the lines of a headless run.
// It turns the core's callbacks into fields, watches the permissions and keeps the computer awake.
// Belongs to the main queue: every call, field and callback is there. Lives as long as the program.
class AgentModel : public std::enable_shared_from_this<AgentModel> {
public:
    static constexpr std::chrono::seconds permissionPollInterval{2};

    AgentModel(SerialQueue& mainQueue, std::shared_ptr<AgentCore> core, Defaults& defaults,
               Permissions& permissions, Power& power);

    // Told after the field of the same name has changed, in the core's order; set before start().
    std::function<void(std::uint16_t)> onListening;
    std::function<void(const AgentCore::Status&)> onStatus;
    std::function<void(const std::optional<std::string>&)> onPairingCode;
    std::function<void(const std::optional<PairingRequest>&)> onPairingRequest;
    std::function<void(const std::vector<PairedDevice>&)> onDevices;
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

private:
    void wire();
    void pollPermissions();
    void applyKeepAwake();
    void devicesArrived(std::vector<PairedDevice> list);

    SerialQueue& mainQueue;
    const std::shared_ptr<AgentCore> core;
    Defaults& defaults;
    Permissions& permissions;
    Power& power;
    std::uint32_t sleepAssertion = 0;  // 0: none held
    bool devicesKnown = false;         // the first list only tells what was paired before
    Timer poll;
};

}  // namespace orvel
