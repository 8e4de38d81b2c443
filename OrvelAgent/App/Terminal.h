#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/App/LineReader.h"

namespace orvel {

// The agent in a terminal, for people: what happens in plain lines, the pairing code above all, and
// a few words to type. Main queue only.
class Terminal {
public:
    // `onQuit`: the user asked for the end of the program.
    Terminal(SerialQueue& mainQueue, AgentModel& model, std::function<void()> onQuit);
    ~Terminal();

    void start();  // connects to the model; before the model's start()

private:
    void act(const std::string& word);

    SerialQueue& mainQueue;
    AgentModel& model;
    std::function<void()> onQuit;
    std::shared_ptr<int> alive = std::make_shared<int>();
    QObject connections;  // to the model; they end with it
    std::optional<LineReader> input;
};

}  // namespace orvel
