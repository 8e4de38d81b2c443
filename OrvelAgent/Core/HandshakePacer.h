#pragma once

#include <deque>
#include <map>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Slows down whoever tries handshakes until the pairing code suits him.
//
// The code follows from public keys, so who stands between a phone and this computer can compute
// after the second message which code would be shown here, and break off silently unless it is the
// one that the phone shows too. At full speed a million tries take minutes. So once many
// connections have ended without an admission after their second message, the second message leaves
// for one connection at a time, a step apart, the waiting addresses taking turns: a million tries
// then take a day, and a phone that shares the door with them waits some steps. Belongs to the
// queue given to it.
class HandshakePacer {
public:
    static constexpr std::size_t freeFailures = 20;  // within `memory`, without any pacing
    static constexpr std::chrono::seconds memory{60};
    static constexpr std::chrono::milliseconds step{100};

    explicit HandshakePacer(SerialQueue& pacerQueue) : queue(pacerQueue) {}

    // Calls `answer` when the second message may leave: at once, or later on the queue.
    void request(const std::string& address, UniqueFunction<void()> answer);
    // A connection ended without an admission after its second message.
    void failed();

private:
    bool isPacing() RUNS_ON(queue);
    void answerNext() RUNS_ON(queue);

    SerialQueue& queue;
    std::deque<MonotonicTime> failures OWNED_BY(queue);  // the newest `freeFailures`
    std::map<std::string, std::deque<UniqueFunction<void()>>> waiting OWNED_BY(queue);
    std::string lastAddress OWNED_BY(queue);
    Timer next OWNED_BY(queue);
};

}  // namespace orvel
