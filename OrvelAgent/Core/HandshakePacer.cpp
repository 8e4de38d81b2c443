#include "OrvelAgent/Core/HandshakePacer.h"

namespace orvel {

bool HandshakePacer::isPacing() {
    while (!failures.empty() && queue.now() - failures.front() >= memory)
        failures.pop_front();
    return failures.size() >= freeFailures;
}

void HandshakePacer::failed() {
    queue.assertCurrent();
    failures.push_back(queue.now());
    if (failures.size() > freeFailures) failures.pop_front();
}

void HandshakePacer::request(const std::string& address, UniqueFunction<void()> answer) {
    queue.assertCurrent();
    if (!next.isPending() && !isPacing()) return answer();
    waiting[address].push_back(std::move(answer));
    if (!next.isPending()) answerNext();
}

// Answers one and comes back a step later, also when nobody waits then: the step belongs to the
// answer just given.
void HandshakePacer::answerNext() {
    next = queue.after(step, [this] {
        queue.assertCurrent();
        if (!waiting.empty()) answerNext();
    });
    if (waiting.empty()) return;
    auto turn = waiting.upper_bound(lastAddress);
    if (turn == waiting.end()) turn = waiting.begin();
    lastAddress = turn->first;
    const auto answer = std::move(turn->second.front());
    turn->second.pop_front();
    if (turn->second.empty()) waiting.erase(turn);
    answer();
}

}  // namespace orvel
