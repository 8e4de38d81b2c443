#include "OrvelAgent/App/Headless.h"

#include <unistd.h>

#include <cstdio>

#include "OrvelAgent/App/HeadlessLines.h"

namespace orvel {

namespace {

// Whoever reads may have gone; the agent goes on without.
void print(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace

Headless::Headless(SerialQueue& queue, AgentModel& agentModel, std::function<void()> quit)
    : mainQueue(queue), model(agentModel), onQuit(std::move(quit)) {}

Headless::~Headless() = default;

void Headless::start(const Identity& identity) {
    print(headlessLine::identity(identity));
    const auto on = [this](auto signal, auto handler) {
        QObject::connect(&model, signal, &connections, handler);
    };
    using Model = AgentModel;
    on(&Model::listening, [](std::uint16_t port) { print(headlessLine::listening(port)); });
    on(&Model::statusChanged, [this] { print(headlessLine::status(model.status())); });
    on(&Model::pairingCodeChanged,
       [this] { print(headlessLine::pairingCode(model.pairingCode())); });
    on(&Model::pairingRequestChanged,
       [this] { print(headlessLine::pairingRequest(model.pairingRequest())); });
    on(&Model::relayOnlineChanged, [this] { print(headlessLine::relay(model.relayOnline())); });
    on(&Model::unlockReported,
       [](const auto& name, const auto& until) { print(headlessLine::unlock(name, until)); });
    on(&Model::clipboardArrived,
       [](const std::string& text) { print(headlessLine::clipboard(text)); });
    on(&Model::devicesChanged, [this] { print(headlessLine::devices(model.devices())); });
    input.emplace(STDIN_FILENO, [this, weak = std::weak_ptr<int>(alive)](std::string line) {
        mainQueue.post([this, weak, line = std::move(line)] {
            if (!weak.expired()) act(line);
        });
    });
}

void Headless::act(const std::string& line) {
    struct Perform {
        Headless& self;
        void operator()(const HeadlessAction::Disconnect&) const { self.model.disconnect(); }
        void operator()(const HeadlessAction::Forget& forget) const {
            self.model.forget(forget.deviceID);
        }
        void operator()(const HeadlessAction::ForgetAll&) const { self.model.forgetAll(); }
        void operator()(const HeadlessAction::SetRemoteAccess& set) const {
            self.model.setRemoteAccess(set.mode);
        }
        void operator()(const HeadlessAction::RejectPairing&) const { self.model.rejectPairing(); }
        void operator()(const HeadlessAction::AllowPairing& allow) const {
            self.model.allowPairing(allow.deviceID);
        }
        void operator()(const HeadlessAction::SetKeepAwake& set) const {
            self.model.setKeepAwake(set.keepAwake);
        }
        void operator()(const HeadlessAction::Quit&) const { self.onQuit(); }
        void operator()(const HeadlessAction::Unknown& unknown) const {
            print(headlessLine::error(unknown.description));
        }
    };
    std::visit(Perform{*this}, HeadlessAction::parse(line));
}

}  // namespace orvel
