#include "OrvelAgent/App/AgentModel.h"

#include <algorithm>

namespace orvel {

namespace {
constexpr const char* keepAwakeReason = "Orvel: telefondan erişilebilir kal";
}

AgentModel::AgentModel(SerialQueue& modelQueue, std::shared_ptr<AgentCore> agentCore,
                       Defaults& modelDefaults, Permissions& modelPermissions, Power& modelPower)
    : mainQueue(modelQueue),
      core(std::move(agentCore)),
      defaults(modelDefaults),
      permissions(modelPermissions),
      power(modelPower) {}

void AgentModel::start() {
    keepAwake = defaults.boolean("keepAwake").value_or(true);
    wire();
    core->start();
    applyKeepAwake();
    pollPermissions();
}

void AgentModel::wire() {
    // Each callback of the core reaches the model only while it lives.
    const auto whileAlive = [weak = weak_from_this()](auto handler) {
        return [weak, handler](auto... value) {
            if (auto self = weak.lock()) handler(*self, std::move(value)...);
        };
    };
    core->onListening = whileAlive([](AgentModel& self, std::uint16_t port) {
        if (self.onListening) self.onListening(port);
    });
    core->onStatus = whileAlive([](AgentModel& self, AgentCore::Status newStatus) {
        self.status = std::move(newStatus);
        if (self.onStatus) self.onStatus(self.status);
    });
    core->onPairingCode = whileAlive([](AgentModel& self, std::optional<std::string> code) {
        self.pairingCode = std::move(code);
        if (self.onPairingCode) self.onPairingCode(self.pairingCode);
    });
    core->onPairingRequest =
        whileAlive([](AgentModel& self, std::optional<PairingRequest> request) {
            self.pairingRequest = std::move(request);
            if (self.onPairingRequest) self.onPairingRequest(self.pairingRequest);
        });
    core->onDevices = whileAlive([](AgentModel& self, std::vector<PairedDevice> list) {
        self.devicesArrived(std::move(list));
    });
}

void AgentModel::devicesArrived(std::vector<PairedDevice> list) {
    const auto before = std::exchange(devices, std::move(list));
    if (onDevices) onDevices(devices);
    if (!std::exchange(devicesKnown, true)) return;
    for (const PairedDevice& device : devices) {
        const bool wasPaired = std::any_of(before.begin(), before.end(),
                                           [&](auto& known) { return known.id == device.id; });
        if (!wasPaired && onNewlyPaired) onNewlyPaired(device);
    }
}

void AgentModel::pollPermissions() {
    screenGranted = permissions.screenRecording();
    accessibilityGranted = permissions.accessibility();
    poll = mainQueue.after(permissionPollInterval, [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->pollPermissions();
    });
}

void AgentModel::setKeepAwake(bool value) {
    keepAwake = value;
    defaults.set("keepAwake", value);
    applyKeepAwake();
}

void AgentModel::applyKeepAwake() {
    if (keepAwake && sleepAssertion == 0) {
        sleepAssertion = power.preventIdleSleep(keepAwakeReason);
    } else if (!keepAwake && sleepAssertion != 0) {
        power.release(std::exchange(sleepAssertion, 0));
    }
}

void AgentModel::setRemoteAccess(AgentCore::RemoteAccess mode) {
    core->setRemoteAccess(mode);
}
void AgentModel::disconnect() {
    core->disconnect();
}
void AgentModel::forget(const std::string& deviceID) {
    core->forget(deviceID);
}
void AgentModel::forgetAll() {
    core->forgetAll();
}
void AgentModel::rejectPairing() {
    core->rejectPairing();
}
void AgentModel::allowPairing(const std::string& deviceID) {
    core->allowPairing(deviceID);
}

void AgentModel::quit(std::function<void()> completion) {
    poll.cancel();
    core->shutDown([weak = weak_from_this(), completion = std::move(completion)] {
        if (auto self = weak.lock(); self && self->sleepAssertion != 0) {
            self->power.release(std::exchange(self->sleepAssertion, 0));
        }
        completion();
    });
}

}  // namespace orvel
