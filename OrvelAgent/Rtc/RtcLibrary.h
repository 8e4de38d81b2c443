#pragma once

#include <set>

#include "OrvelAgent/Rtc/RtcThreads.h"
#include "OrvelAgent/Rtc/WebRtc.h"

namespace orvel {

class RtcConnection;

// What WebRtc and its connections share: the threads, which start when first needed, and the
// connections that are open. Outlives the threads.
class RtcLibrary {
public:
    RtcLibrary(CompressionSession::Factory encoder, WebRtc::Options options);

    // Runs `task` on the signaling thread, with the threads. Any thread; dropped after stop().
    void post(absl::AnyInvocable<void(RtcThreads&) &&> task);
    void stop();

    // On the signaling thread.
    void opened(std::shared_ptr<RtcConnection> connection);
    void closed(const std::shared_ptr<RtcConnection>& connection);

private:
    RtcThreads* threads();

    const CompressionSession::Factory encoder;
    const WebRtc::Options options;
    std::set<std::shared_ptr<RtcConnection>> connections;  // the signaling thread's
    std::mutex mutex;
    std::unique_ptr<RtcThreads> started;  // guarded by `mutex`; once there, it stays
    bool isStopped = false;               // guarded by `mutex`
};

}  // namespace orvel
