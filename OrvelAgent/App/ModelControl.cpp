#include "OrvelAgent/App/ModelControl.h"

#include <algorithm>
#include <cstdlib>

#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

constexpr const char* done = R"({"done":{}})";

std::string environmentLine() {
    JsonWriter json;
    json.beginObject();
    json.key("environment");
    json.beginObject();
    for (const char* name : AgentSnapshot::sessionVariables) {
        const char* value = std::getenv(name);
        if (!value) continue;
        json.key(name);
        json.string(value);
    }
    json.endObject();
    json.endObject();
    return json.take();
}

std::string historyLine(const std::vector<std::string>& lines) {
    JsonWriter json;
    json.beginObject();
    json.key("history");
    json.beginArray();
    for (const std::string& line : lines)
        json.string(line);
    json.endArray();
    json.endObject();
    return json.take();
}

std::int64_t unixSeconds(WallTime time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

ModelControl::ModelControl(Parts given) : parts(std::move(given)) {}

AgentSnapshot ModelControl::snapshot() const {
    const AgentModel& model = parts.model;
    AgentSnapshot now;
    now.version = parts.core->agentVersion;
    now.name = model.macName;
    now.deviceID = parts.core->identity.fingerprint();
    now.status = model.status();
    if (model.listeningPort() != 0) {
        now.listening = {model.listeningPort(), parts.address, parts.isAnnounced};
    }
    now.devices = model.devices();
    now.pairingCode = model.pairingCode();
    now.pairingRequest = model.pairingRequest();
    now.relayConfigured = model.relayConfigured;
    now.relay = model.relayOnline();
    now.remoteAccess = model.remoteAccess();
    if (model.unlockedUntil()) now.unlockedUntil = unixSeconds(*model.unlockedUntil());
    now.permissions = {model.screenGranted(), model.accessibilityGranted()};
    now.keepAwake = model.keepAwake();
    now.history = model.remoteEvents();
    return now;
}

void ModelControl::handle(const ControlRequest::Any& request, ControlServer::Answer answer) {
    struct Perform {
        ModelControl& self;
        const ControlServer::Answer& answer;
        void operator()(const ControlRequest::Snapshot&) const { answer(self.snapshot().line()); }
        void operator()(const ControlRequest::Follow&) const { answer(self.snapshot().line()); }
        void operator()(const ControlRequest::Environment&) const { answer(environmentLine()); }
        void operator()(const ControlRequest::Show&) const {
            if (!self.onShow) return answer(headlessLine::error("this agent has no window"));
            self.onShow();
            answer(done);
        }
        void operator()(const HeadlessAction::Any& action) const { self.act(action, answer); }
    };
    std::visit(Perform{*this, answer}, request);
}

void ModelControl::act(const HeadlessAction::Any& action, const ControlServer::Answer& answer) {
    struct Perform {
        const Parts& parts;
        // What is wrong with it; empty: it was done.
        std::string operator()(const HeadlessAction::Disconnect&) const {
            parts.model.disconnect();
            return {};
        }
        std::string operator()(const HeadlessAction::Forget& forget) const {
            const auto& devices = parts.model.devices();
            const bool isPaired = std::any_of(devices.begin(), devices.end(), [&](auto& device) {
                return device.id == forget.deviceID;
            });
            if (!isPaired) return "no paired phone has this ID";
            parts.model.forget(forget.deviceID);
            return {};
        }
        std::string operator()(const HeadlessAction::ForgetAll&) const {
            parts.model.forgetAll();
            return {};
        }
        std::string operator()(const HeadlessAction::SetRemoteAccess& set) const {
            parts.model.setRemoteAccess(set.mode);
            return {};
        }
        std::string operator()(const HeadlessAction::RejectPairing&) const {
            if (!parts.model.pairingCode() && !parts.model.pairingRequest()) {
                return "no new phone wants to pair";
            }
            parts.model.rejectPairing();
            return {};
        }
        std::string operator()(const HeadlessAction::AllowPairing& allow) const {
            const auto& request = parts.model.pairingRequest();
            if (!request || request->deviceID != allow.deviceID) {
                return "no phone with this ID waits to be allowed";
            }
            parts.model.allowPairing(allow.deviceID);
            return {};
        }
        std::string operator()(const HeadlessAction::SetKeepAwake& set) const {
            parts.model.setKeepAwake(set.keepAwake);
            return {};
        }
        std::string operator()(const HeadlessAction::Quit&) const {
            parts.onQuit();
            return {};
        }
        // The server has answered those.
        std::string operator()(const HeadlessAction::Unknown& unknown) const {
            return unknown.description;
        }
    };
    // Its end takes everything along: said first.
    if (std::holds_alternative<HeadlessAction::Quit>(action)) answer(done);
    const std::string problem = std::visit(Perform{parts}, action);
    if (!problem.empty()) return answer(headlessLine::error(problem));
    // Done when the core has done it, and the model has heard of that.
    parts.agentQueue.post(
        [&main = parts.mainQueue, answer] { main.post([answer] { answer(done); }); });
}

void ModelControl::publishTo(ControlServer& server) {
    AgentModel& model = parts.model;
    const auto on = [&](auto signal, auto handler) {
        QObject::connect(&model, signal, &connections, handler);
    };
    using Model = AgentModel;
    on(&Model::listening,
       [&server](std::uint16_t port) { server.publish(headlessLine::listening(port)); });
    on(&Model::statusChanged,
       [&server, &model] { server.publish(headlessLine::status(model.status())); });
    on(&Model::pairingCodeChanged,
       [&server, &model] { server.publish(headlessLine::pairingCode(model.pairingCode())); });
    on(&Model::pairingRequestChanged,
       [&server, &model] { server.publish(headlessLine::pairingRequest(model.pairingRequest())); });
    on(&Model::devicesChanged,
       [&server, &model] { server.publish(headlessLine::devices(model.devices())); });
    on(&Model::relayOnlineChanged,
       [&server, &model] { server.publish(headlessLine::relay(model.relayOnline())); });
    on(&Model::unlockReported,
       [&server](const std::string& name, const std::optional<WallTime>& until) {
           server.publish(headlessLine::unlock(name, until));
       });
    on(&Model::remoteEventsChanged,
       [&server, &model] { server.publish(historyLine(model.remoteEvents())); });
}

}  // namespace orvel
