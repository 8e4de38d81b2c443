#include "OrvelAgent/App/Terminal.h"

#include <cstdio>

namespace orvel {

namespace {

// A phone chooses its own name: it must not be able to play with the terminal.
std::string printable(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    }
    return text;
}

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

void showInTerminal(AgentModel& model) {
    model.onListening = [](std::uint16_t port) {
        print("listening on port " + std::to_string(port));
    };
    model.onStatus = [](const AgentCore::Status& status) {
        print(std::visit(StatusText(), status.value));
    };
    model.onPairingCode = [](const std::optional<std::string>& code) {
        if (code)
            print("a new phone wants to pair; type this on it:  " + code->substr(0, 3) + " " +
                  code->substr(3));
    };
    model.onPairingRequest = [](const std::optional<PairingRequest>& request) {
        if (request) {
            print(printable(request->name) + " typed the code and waits to be allowed (" +
                  request->deviceID + ")");
        }
    };
}

}  // namespace orvel
