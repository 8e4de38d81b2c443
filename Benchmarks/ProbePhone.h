#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Phone/PhoneConnection.h"

namespace orvel::phone {

// A paired phone that watches one agent and keeps times of what arrives; the pictures themselves
// and the files' bytes are thrown away. Failures are thrown as std::runtime_error.
class ProbePhone {
public:
    // `stateFolder`: of an orvel-phone that is paired with the agent.
    ProbePhone(const std::string& stateFolder, const std::string& host, std::uint16_t port);
    ~ProbePhone();
    ProbePhone(const ProbePhone&) = delete;
    ProbePhone& operator=(const ProbePhone&) = delete;

    void send(const Control& control) { connection.send(control); }

    // From the call to the pong's last byte, in ms.
    double ping();

    // Fetches a file of the computer again and again until told to stop.
    void startFetching(const std::string& path);
    void stopFetching();

    // What has arrived since the call before.
    struct Seen {
        std::vector<double> videoAges;  // ms from the picture's time stamp to its last byte
        std::uint64_t fileBytes = 0;
    };
    Seen takeSeen();

private:
    void listen();
    void take(const PhoneConnection::Event& event);

    PhoneConnection connection;
    std::mutex mutex;  // guards what follows
    std::condition_variable changed;
    std::optional<Control::Pong> pong;
    MonotonicTime pongAt;
    std::uint64_t lastPing = 0;
    std::string fetched;  // empty: nothing
    std::uint32_t fetchID = 0;
    bool isFetching = false;
    std::string problem;
    Seen seen;
    std::uint64_t newestPts = 0;
    bool ending = false;
    std::thread listener;
};

}  // namespace orvel::phone
