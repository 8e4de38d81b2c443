#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Core/Connection.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// A connection in memory, seen from the phone's end. The agent's end is a FakeConnection. All of
// it belongs to one thread: the test's, which also turns the virtual time.
struct FakeWire {
    std::string address = "192.0.2.1";
    Bytes toAgent;           // not yet received by the agent
    Bytes fromAgent;         // sent by the agent; the test takes it out
    bool isStalled = false;  // the agent's sends do not complete
    bool phoneClosed = false;
    bool agentClosed = false;    // cancelled
    bool agentFinished = false;  // closed after everything was sent
    int sends = 0;

    bool isOver() const { return agentClosed || agentFinished; }
    // After writing to toAgent, phoneClosed or isStalled: lets the agent's end see it.
    std::function<void()> poke = [] {};
};

class FakeConnection final : public Connection {
public:
    FakeConnection(SerialQueue& connectionQueue, std::shared_ptr<FakeWire> connectionWire)
        : wire(std::move(connectionWire)) {
        wire->poke = [this, &connectionQueue, weak = std::weak_ptr<int>(alive)] {
            connectionQueue.post([this, weak] {
                if (!weak.expired()) move();
            });
        };
    }
    ~FakeConnection() override {
        if (!wire->isOver()) wire->agentClosed = true;
    }

    void receive(UniqueFunction<void(std::optional<ByteView>)> completion) override {
        if (wire->isOver()) return;
        received = std::move(completion);
        wire->poke();
    }
    void send(ByteView bytes, UniqueFunction<void(bool)> completion) override {
        if (wire->isOver()) return;
        outgoing = bytes;
        sent = std::move(completion);
        ++wire->sends;
        wire->poke();
    }
    void cancel() override {
        end();
        if (!wire->isOver()) wire->agentClosed = true;
    }
    void finish() override {
        end();
        if (!wire->isOver()) wire->agentFinished = true;
    }
    std::string remoteAddress() const override { return wire->address; }

private:
    void end() {
        received = nullptr;
        sent = nullptr;
    }

    void move() {
        const std::weak_ptr<int> weak = alive;
        if (sent && !wire->isStalled) {
            append(wire->fromAgent, outgoing);
            std::exchange(sent, nullptr)(true);
        }
        if (weak.expired() || !received) return;
        if (!wire->toAgent.empty()) {
            const std::size_t count = std::min(wire->toAgent.size(), maxReceive);
            const Bytes chunk(wire->toAgent.begin(), wire->toAgent.begin() + std::ptrdiff_t(count));
            wire->toAgent.erase(wire->toAgent.begin(),
                                wire->toAgent.begin() + std::ptrdiff_t(count));
            std::exchange(received, nullptr)(ByteView(chunk));
        } else if (wire->phoneClosed) {
            std::exchange(received, nullptr)(std::nullopt);
        }
    }

    std::shared_ptr<FakeWire> wire;
    UniqueFunction<void(std::optional<ByteView>)> received;
    UniqueFunction<void(bool)> sent;
    ByteView outgoing;
    std::shared_ptr<int> alive = std::make_shared<int>();
};

// Listens nowhere; a test makes the connections.
class FakeListener final : public Listener {
public:
    // What the test sees and sets, also after the listener has gone.
    struct Port {
        std::vector<std::uint16_t> taken;  // ports that cannot be listened on
        bool refusesAll = false;
        std::uint16_t freePort = 50'000;  // what port 0 gives
        std::vector<std::uint16_t> asked;
        std::string address;
        Handlers handlers;
        bool isListening = false;
        SerialQueue* queue = nullptr;

        // A phone connects; the agent hears of it when its queue runs.
        std::shared_ptr<FakeWire> connect(const std::string& from = "192.0.2.1") {
            auto wire = std::make_shared<FakeWire>();
            wire->address = from;
            queue->post([this, wire] {
                if (isListening) {
                    handlers.onConnection(std::make_unique<FakeConnection>(*queue, wire));
                } else {
                    wire->agentClosed = true;
                }
            });
            return wire;
        }
    };

    FakeListener(SerialQueue& queue, std::shared_ptr<Port> listenerPort)
        : port(std::move(listenerPort)) {
        port->queue = &queue;
    }

    Result listen(const std::string& address, std::uint16_t number, Handlers handlers) override {
        port->asked.push_back(number);
        port->address = address;
        if (port->refusesAll) return {0, "refused"};
        for (auto taken : port->taken) {
            if (number == taken) return {0, "taken"};
        }
        port->handlers = std::move(handlers);
        port->isListening = true;
        return {number != 0 ? number : port->freePort, {}};
    }
    void stop() override { port->isListening = false; }

private:
    std::shared_ptr<Port> port;
};

}  // namespace orvel
