#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/App/LineReader.h"

namespace orvel {

// The agent without windows: the model's news as JSON lines on standard output, actions from
// standard input. Main queue only.
class Headless {
public:
    // `onQuit`: the user asked for the end of the program.
    Headless(SerialQueue& mainQueue, AgentModel& model, std::function<void()> onQuit);
    ~Headless();

    // Prints the identity and connects to the model. Before the model's start().
    void start(const Identity& identity);

private:
    void act(const std::string& line);

    SerialQueue& mainQueue;
    AgentModel& model;
    std::function<void()> onQuit;
    std::shared_ptr<int> alive = std::make_shared<int>();
    QObject connections;  // to the model; they end with it
    std::optional<LineReader> input;
};

}  // namespace orvel
