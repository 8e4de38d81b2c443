#pragma once

#include <memory>

#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelAgent/Rtc/PeerConnection.h"

namespace orvel {

// The WebRTC library of this process: one for the agent, made by the program's entry, and passed on
// as its factory(). The library's threads start with the first connection.
//
// Every queue that was given to it outlives it, or stop() is called before the queue ends: until
// then outcomes are posted there.
class WebRtc {
public:
    struct Options {
        // Addresses of this machine alone; for tests.
        bool loopbackOnly = false;
        // Beside the others, so that a phone on this machine is reached without any network.
        bool loopbackToo = false;
    };

    // `encoder` makes the compression sessions for H.264; it is called on the library's threads.
    WebRtc(CompressionSession::Factory encoder, Options options);
    explicit WebRtc(CompressionSession::Factory encoder) : WebRtc(std::move(encoder), Options()) {}
    ~WebRtc();  // stop()
    WebRtc(const WebRtc&) = delete;
    WebRtc& operator=(const WebRtc&) = delete;

    // Makes connections; after stop() those that do nothing. Any thread.
    PeerConnection::Factory factory();

    // Closes every connection, without telling its owner, and ends the threads; waits for that.
    // Connections that live on do nothing any more. Again is harmless.
    void stop();

private:
    const std::shared_ptr<class RtcLibrary> library;
};

}  // namespace orvel
