#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/Media/AudioSamples.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// What the computer plays: the monitor of the default output of a PulseAudio server, or of PipeWire
// in its place. It follows when another output becomes the default one, and comes back when the
// sound server does. While there is no sound it keeps looking, less and less often, and says so
// once on stderr. It never starts a sound server.
//
// The sound is stereo (a server mixes more channels down, so that the voice in the middle of a film
// is heard), interleaved floats at the rate of the output, in pieces of about 20 ms. Of a silence
// the first second comes, then nothing until something is played again.
//
// Belongs to the queue given to it, which runs in real time. Nothing is open and nothing waits
// before start() and after stop(). Held by a shared_ptr; may end anywhere once it is stopped.
class PulseMonitor : public std::enable_shared_from_this<PulseMonitor> {
public:
    using Receiver = std::function<void(const AudioSamples&)>;

    // `server` as in $PULSE_SERVER; empty stands for what that and the user's settings say.
    explicit PulseMonitor(SerialQueue& audioQueue, std::string server = {});
    ~PulseMonitor();
    PulseMonitor(const PulseMonitor&) = delete;
    PulseMonitor& operator=(const PulseMonitor&) = delete;

    // Both on the queue; a receiver may call them too. `onSound` is called there until stop() or
    // another start().
    void start(Receiver onSound);
    void stop();

private:
    struct Connection;

    void connect() RUNS_ON(queue);
    void connectionChanged() RUNS_ON(queue);
    void followDefault() RUNS_ON(queue);
    void listen() RUNS_ON(queue);
    void streamChanged() RUNS_ON(queue);
    void read() RUNS_ON(queue);
    bool deliver(const void* data, std::size_t size) RUNS_ON(queue);
    void retry(const char* reason) RUNS_ON(queue);

    // What libpulse calls, as one of the queue's tasks.
    static PulseMonitor& of(void* monitor);

    SerialQueue& queue;
    const std::string server;
    std::shared_ptr<const Receiver> receiver OWNED_BY(queue);  // null: stopped
    std::unique_ptr<Connection> connection OWNED_BY(queue);
    Timer nextTry OWNED_BY(queue);
    int failures OWNED_BY(queue) = 0;              // since the last sound
    bool saidThereIsNone OWNED_BY(queue) = false;  // since the last sound
};

}  // namespace orvel
