#pragma once

#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/Control/ControlRequest.h"
#include "OrvelAgent/Platform/ControlSocket.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Lets commands of the same user, in processes of their own, ask the running agent and tell it what
// to do, over a local socket. Text in lines, each one JSON object:
//
//   to the agent:   {"snapshot":{}}  {"follow":{}}  {"show":{}}  {"environment":{}}
//                   {"disconnect":{}}  {"forget":{"deviceID":"…"}}  … (see ControlRequest)
//   from the agent: one answer for each, in their order: {"snapshot":{…}}, {"environment":{…}},
//                   {"done":{}} once it has taken effect, or {"error":"…"} when nothing was done;
//                   after the answer to "follow" also the events of a headless run, as they come.
//
// What is no request gets an error and ends the connection, as does a line of more than maxLine
// bytes. Nobody can hold the agent: requests wait until the one before is answered, whoever does
// not take maxWaiting bytes of what is for him is dropped, so is one who neither asks nor follows
// for idleTime, and beyond maxClients nobody new is let in. Processes of other users are hung up
// on.
class ControlServer {
public:
    static constexpr std::size_t maxLine = 4096;
    static constexpr std::size_t maxWaiting = 256 << 10;
    static constexpr std::size_t maxClients = 32;
    static constexpr std::chrono::seconds idleTime{30};

    // The line that answers; called once, from any thread.
    using Answer = std::function<void(std::string line)>;
    // Called on the main queue, with requests that could be read.
    using Handler = std::function<void(const ControlRequest::Any&, Answer)>;

    // `queue`, "orvel.control", is in real time and is this object's own.
    ControlServer(SerialQueue& queue, SerialQueue& mainQueue, std::unique_ptr<ControlSocket> socket,
                  Handler handler);
    // On the main queue; the handler is not called any more.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // One line for everybody who follows. Any thread.
    void publish(std::string line);

private:
    class Works;
    const std::shared_ptr<Works> works;
    const std::unique_ptr<ControlSocket> socket;
};

}  // namespace orvel
