#include "OrvelAgent/App/AgentModel.h"

#include <algorithm>

namespace orvel {

namespace {
constexpr const char* keepAwakeReason = "Orvel: telefondan erişilebilir kal";
}

AgentModel::AgentModel(Parts parts)
    : mainQueue(parts.mainQueue),
      core(std::move(parts.core)),
      defaults(parts.defaults),
      permissions(parts.permissions),
      power(parts.power),
      pasteboard(parts.pasteboard),
      focus(std::make_shared<FocusWatcher>(mainQueue, parts.workspace, parts.textFocus)),
      rest(std::move(parts.rest)) {}

void AgentModel::start() {
    keepAwake = defaults.boolean("keepAwake").value_or(true);
    wire();
    startWatchers();
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
        self.statusArrived(std::move(newStatus));
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
    core->onRelay = whileAlive([](AgentModel& self, bool joined) {
        self.relayOnline = joined;
        if (self.onRelay) self.onRelay(joined);
    });
    core->onUnlock =
        whileAlive([](AgentModel& self, std::string name, std::optional<WallTime> until) {
            self.unlockedUntil = until;
            if (self.onUnlock) self.onUnlock(name, until);
        });
    core->onClipboard = whileAlive([](AgentModel& self, std::string text) {
        self.clipboard->setText(text);
        if (self.onClipboard) self.onClipboard(text);
    });
    core->onDevices = whileAlive([](AgentModel& self, std::vector<PairedDevice> list) {
        self.devicesArrived(std::move(list));
    });
}

void AgentModel::startWatchers() {
    clipboard = std::make_shared<ClipboardWatcher>(mainQueue, pasteboard);
    clipboard->onCopy = [core = core](std::string text) { core->sendClipboard(std::move(text)); };
    clipboard->start();
    focus->onFrontApp = [core = core](std::string bundleID, std::string name) {
        core->sendFrontApp(std::move(bundleID), std::move(name));
    };
    focus->onTextFocus = [core = core](bool focused) { core->sendTextFocus(focused); };
}

void AgentModel::statusArrived(AgentCore::Status newStatus) {
    const auto isConnected = [this] {
        return std::holds_alternative<AgentCore::Status::Connected>(status.value);
    };
    const bool wasConnected = isConnected();
    status = std::move(newStatus);
    // Each phone hears anew what is in front, also one that took over from another.
    if (isConnected()) {
        focus->start();
        restTimer.cancel();
    } else {
        focus->stop();
        if (wasConnected) restTimer = mainQueue.after(restDelay, [call = rest] { call(); });
    }
    if (onStatus) onStatus(status);
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
    unlockedUntil.reset();
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
    focus->stop();
    core->shutDown([weak = weak_from_this(), completion = std::move(completion)] {
        if (auto self = weak.lock(); self && self->sleepAssertion != 0) {
            self->power.release(std::exchange(self->sleepAssertion, 0));
        }
        completion();
    });
}

}  // namespace orvel
