#include "OrvelAgent/App/AgentModel.h"

#include <QUuid>
#include <algorithm>
#include <utility>

#include "OrvelAgent/App/PhoneName.h"

namespace orvel {

namespace {

constexpr const char* keepAwakeReason = "Orvel: telefondan erişilebilir kal";

template <class Value>
bool changes(Value& field, Value value) {
    if (field == value) return false;
    field = std::move(value);
    return true;
}

}  // namespace

AgentModel::AgentModel(Parts parts)
    : relayConfigured(parts.relayConfigured),
      macName(parts.core->macName),
      mainQueue(parts.mainQueue),
      core(std::move(parts.core)),
      defaults(parts.defaults),
      permissions(parts.permissions),
      power(parts.power),
      pasteboard(parts.pasteboard),
      notifier(parts.notifier),
      rest(std::move(parts.rest)),
      timeText(std::move(parts.timeText)),
      history(defaults),
      focus(std::make_shared<FocusWatcher>(mainQueue, parts.workspace, parts.textFocus)) {
    fields.keepAwake = defaults.boolean("keepAwake").value_or(true);
    fields.remoteAccess = storedRemoteAccess(defaults);
    fields.screenGranted = permissions.screenRecording();
    fields.accessibilityGranted = permissions.accessibility();
}

void AgentModel::start() {
    wire();
    startWatchers();
    core->start();
    applyKeepAwake();
    schedulePoll();
    notifier.requestPermission();
}

void AgentModel::wire() {
    // Each callback of the core reaches the model only while it lives.
    const auto whileAlive = [weak = weak_from_this()](auto handler) {
        return [weak, handler](auto... value) {
            if (auto self = weak.lock()) handler(*self, std::move(value)...);
        };
    };
    core->onListening = whileAlive([](AgentModel& self, std::uint16_t port) {
        self.fields.listeningPort = port;
        Q_EMIT self.listening(port);
    });
    core->onStatus = whileAlive([](AgentModel& self, AgentCore::Status newStatus) {
        self.statusArrived(std::move(newStatus));
    });
    core->onPairingCode = whileAlive([](AgentModel& self, std::optional<std::string> code) {
        self.fields.pairingCode = std::move(code);
        Q_EMIT self.pairingCodeChanged();
    });
    core->onPairingRequest =
        whileAlive([](AgentModel& self, std::optional<PairingRequest> request) {
            self.fields.pairingRequest = std::move(request);
            Q_EMIT self.pairingRequestChanged();
        });
    core->onRelay = whileAlive([](AgentModel& self, bool joined) {
        self.fields.relayOnline = joined;
        Q_EMIT self.relayOnlineChanged();
    });
    core->onUnlock =
        whileAlive([](AgentModel& self, std::string name, std::optional<WallTime> until) {
            self.unlockArrived(name, until);
        });
    core->onClipboard = whileAlive([](AgentModel& self, std::string text) {
        self.clipboard->setText(text);
        Q_EMIT self.clipboardArrived(text);
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
        return std::holds_alternative<AgentCore::Status::Connected>(fields.status.value);
    };
    const bool wasConnected = isConnected();
    fields.status = std::move(newStatus);
    // Each phone hears anew what is in front, also one that took over from another.
    if (isConnected()) {
        focus->start();
        restTimer.cancel();
    } else {
        focus->stop();
        if (wasConnected) restTimer = mainQueue.after(restDelay, [call = rest] { call(); });
    }
    Q_EMIT statusChanged();
}

void AgentModel::devicesArrived(std::vector<PairedDevice> list) {
    const auto before = std::exchange(fields.devices, list);
    const bool isFirst = !std::exchange(devicesKnown, true);
    Q_EMIT devicesChanged();
    if (isFirst) return;
    for (const PairedDevice& device : list) {
        const bool wasPaired = std::any_of(before.begin(), before.end(),
                                           [&](auto& known) { return known.id == device.id; });
        if (wasPaired) continue;
        // It may come again, forgotten meanwhile: then this is about the later time.
        notifier.post({"paired-" + device.id, "Yeni telefon eşleşti",
                       phoneNameInText(device.name) +
                           " artık bu Mac'e bağlanabilir. Sen istemediysen menüden kaldır."});
        Q_EMIT newlyPaired(device);
    }
}

void AgentModel::unlockArrived(const std::string& phone, const std::optional<WallTime>& until) {
    const std::string name = phoneNameInText(phone);
    if (until) {
        const std::string end = timeText(*until);
        // Whoever has just chosen a mode has locked it again.
        if (modesUnderWay == 0) setUnlockedUntil(until);
        record(name + " uzaktan erişimi açtı (" + end + "'e kadar)");
        notifier.post({QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString(),
                       "Uzaktan erişim açıldı",
                       name + " bu Mac'e uzaktan erişimi " + end +
                           "'e kadar açtı. Sen istemediysen menüden Kapalı'yı seç."});
    } else {
        setUnlockedUntil(std::nullopt);
        record(name + " oturumu bitti, yeniden beklemede");
    }
    Q_EMIT unlockReported(phone, until);
}

void AgentModel::record(const std::string& event) {
    history.add(timeText(mainQueue.wallTime()) + " · " + event);
    Q_EMIT remoteEventsChanged();
}

void AgentModel::setUnlockedUntil(std::optional<WallTime> until) {
    const auto now = mainQueue.wallTime();
    if (until && *until <= now) until.reset();
    if (until) {
        lockTimer = mainQueue.after(*until - now, [weak = weak_from_this()] {
            if (auto self = weak.lock()) self->setUnlockedUntil(self->fields.unlockedUntil);
        });
    } else {
        lockTimer.cancel();
    }
    if (changes(fields.unlockedUntil, until)) Q_EMIT unlockedUntilChanged();
}

void AgentModel::pollPermissions() {
    schedulePoll();
    if (changes(fields.screenGranted, permissions.screenRecording())) {
        Q_EMIT screenGrantedChanged();
    }
    if (changes(fields.accessibilityGranted, permissions.accessibility())) {
        Q_EMIT accessibilityGrantedChanged();
    }
    // The timer's clock stands still while the computer sleeps, and the user may set the other.
    setUnlockedUntil(fields.unlockedUntil);
}

void AgentModel::schedulePoll() {
    poll = mainQueue.after(permissionPollInterval, [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->pollPermissions();
    });
}

void AgentModel::setKeepAwake(bool value) {
    defaults.set("keepAwake", value);
    const bool isChange = changes(fields.keepAwake, value);
    applyKeepAwake();
    if (isChange) Q_EMIT keepAwakeChanged();
}

void AgentModel::applyKeepAwake() {
    if (fields.keepAwake && sleepAssertion == 0) {
        sleepAssertion = power.preventIdleSleep(keepAwakeReason);
    } else if (!fields.keepAwake && sleepAssertion != 0) {
        power.release(std::exchange(sleepAssertion, 0));
    }
}

void AgentModel::setRemoteAccess(AgentCore::RemoteAccess mode) {
    ++modesUnderWay;
    core->setRemoteAccess(mode, [weak = weak_from_this()] {
        if (auto self = weak.lock()) --self->modesUnderWay;
    });
    setUnlockedUntil(std::nullopt);
    if (changes(fields.remoteAccess, mode)) Q_EMIT remoteAccessChanged();
}

bool AgentModel::requestScreenRecording() {
    permissions.requestScreenRecording();
    return permissions.openScreenRecordingSettings();
}

bool AgentModel::requestAccessibility() {
    return permissions.openAccessibilitySettings();
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
    lockTimer.cancel();
    focus->stop();
    core->shutDown([weak = weak_from_this(), completion = std::move(completion)] {
        if (auto self = weak.lock(); self && self->sleepAssertion != 0) {
            self->power.release(std::exchange(self->sleepAssertion, 0));
        }
        completion();
    });
}

}  // namespace orvel
