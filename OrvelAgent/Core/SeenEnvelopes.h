#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <set>
#include <utility>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Secure/Crypto.h"

namespace orvel {

// Which envelopes were opened lately. The relay, and whoever listens there, can show one again; it
// opens for as long as its time of sending is near, so for that long it has to be remembered. A
// value on the queue of its owner.
class SeenEnvelopes {
public:
    // An envelope is accepted this long before and after its time of sending, together.
    static constexpr std::chrono::seconds memory{240};
    // Only paired phones get here. Should one flood, the oldest are forgotten.
    static constexpr std::size_t most = 4'096;

    // Notes the envelope with this box; true when it was there. The nonce in a box makes it unlike
    // every other, while the JSON around it may be written anew on its way.
    bool wasSeen(ByteView box, MonotonicTime now) {
        while (!order.empty() && (now - order.front().first >= memory || order.size() >= most)) {
            digests.erase(order.front().second);
            order.pop_front();
        }
        const Digest digest = sha256(box);
        if (!digests.insert(digest).second) return true;
        order.emplace_back(now, digest);
        return false;
    }

private:
    std::deque<std::pair<MonotonicTime, Digest>> order;  // oldest first
    std::set<Digest> digests;
};

}  // namespace orvel
