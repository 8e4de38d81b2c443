#pragma once

#include <pulse/mainloop-api.h>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The event loop that libpulse asks for, made of a queue: what libpulse waits for it waits for on
// that queue, and its callbacks are tasks of it. So it needs no thread of its own, and no lock
// lies between the sound and those who want it.
//
// The queue runs in real time. The loop outlives the contexts that were made with it.
class PulseLoop {
public:
    explicit PulseLoop(SerialQueue& queue);
    PulseLoop(const PulseLoop&) = delete;
    PulseLoop& operator=(const PulseLoop&) = delete;

    // For pa_context_new(). Everything that has to do with such a context is done on the queue.
    pa_mainloop_api* api() { return &table; }

private:
    pa_mainloop_api table;
};

}  // namespace orvel
