#include "OrvelAgent/App/Terminal.h"

#include <unistd.h>

#include <cstdio>

#include "OrvelKit/Base/Printable.h"

namespace orvel {

namespace {

void print(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

struct StatusText {
    std::string operator()(const AgentCore::Status::Starting&) const { return "starting"; }
    std::string operator()(const AgentCore::Status::Waiting&) const {
        return "waiting for a phone";
    }
    std::string operator()(const AgentCore::Status::Connected& connected) const {
        return "connected: " + printable(connected.name);
    }
    std::string operator()(const AgentCore::Status::Failed& failed) const {
        return "failed: " + failed.message;
    }
};

}  // namespace

Terminal::Terminal(SerialQueue& queue, AgentModel& agentModel, std::function<void()> quit)
    : mainQueue(queue), model(agentModel), onQuit(std::move(quit)) {}

Terminal::~Terminal() = default;

void Terminal::start() {
    const auto on = [this](auto signal, auto handler) {
        QObject::connect(&model, signal, &connections, handler);
    };
    on(&AgentModel::listening,
       [](std::uint16_t port) { print("listening on port " + std::to_string(port)); });
    on(&AgentModel::statusChanged,
       [this] { print(std::visit(StatusText(), model.status().value)); });
    on(&AgentModel::pairingCodeChanged, [this] {
        const auto& code = model.pairingCode();
        if (!code) return;
        print("a new phone wants to pair; type this on it:  " + code->substr(0, 3) + " " +
              code->substr(3) + "   (or \"reject\" here)");
    });
    on(&AgentModel::pairingRequestChanged, [this] {
        const auto& request = model.pairingRequest();
        if (!request) return;
        print(printable(request->name) + " typed the code; type \"allow\" or \"reject\"");
    });
    input.emplace(STDIN_FILENO, [this, weak = std::weak_ptr<int>(alive)](std::string line) {
        mainQueue.post([this, weak, line = std::move(line)] {
            if (!weak.expired()) act(line);
        });
    });
}

void Terminal::act(const std::string& word) {
    if (word.empty()) return;
    if (word == "allow") {
        if (const auto request = model.pairingRequest())
            return model.allowPairing(request->deviceID);
        return print("no phone waits to be allowed");
    }
    if (word == "reject") return model.rejectPairing();
    if (word == "disconnect") return model.disconnect();
    if (word == "quit") return onQuit();
    print("type allow, reject, disconnect or quit");
}

}  // namespace orvel
