#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/Control/AgentSnapshot.h"
#include "OrvelAgent/Control/ControlServer.h"

namespace orvel {

// What commands in other processes see of the agent and do with it: the model behind ControlServer.
// Main queue only; lives as long as the program.
class ModelControl {
public:
    struct Parts {
        AgentModel& model;
        std::shared_ptr<AgentCore> core;
        SerialQueue& agentQueue;  // the core's
        SerialQueue& mainQueue;
        std::string address;           // that it listens on; empty: every one
        bool isAnnounced;              // by DNS-SD
        std::function<void()> onQuit;  // the user asked for the end of the program
    };
    explicit ModelControl(Parts parts);

    // Opens the panel; null: there is none.
    std::function<void()> onShow;

    void handle(const ControlRequest::Any& request, ControlServer::Answer answer);
    // From here on the model's news go to those who follow. Text on the clipboard does not: events
    // end up in logs. Before the model's start(); `server` stays as long as the main queue runs.
    void publishTo(ControlServer& server);

    AgentSnapshot snapshot() const;

private:
    void act(const HeadlessAction::Any& action, const ControlServer::Answer& answer);

    const Parts parts;
    QObject connections;  // end with this
};

}  // namespace orvel
