#pragma once

#include <mutex>

#include "OrvelAgent/Rtc/LibWebRtc.h"

namespace orvel {

// The library's three threads and its factory of peer connections. Its objects are used on the
// signaling thread alone, so that no call into the library waits for another thread of ours; the
// library's own threads do the network and the media.
class RtcThreads {
public:
    // Which network interfaces a connection may use.
    enum class Networks { all, allAndLoopback, onlyLoopback };

    RtcThreads(std::unique_ptr<webrtc::VideoEncoderFactory> encoders,
               std::unique_ptr<webrtc::VideoDecoderFactory> decoders, Networks networks);
    ~RtcThreads();
    RtcThreads(const RtcThreads&) = delete;
    RtcThreads& operator=(const RtcThreads&) = delete;

    // Runs `task` on the signaling thread, in the order of the calls. Any thread; dropped once
    // stop() has begun.
    void post(absl::AnyInvocable<void() &&> task);

    // On the signaling thread.
    webrtc::PeerConnectionFactoryInterface& factory() { return *peerFactory; }

    // Runs what was posted, then `last` on the signaling thread, and ends the threads. Not from one
    // of them; again is harmless.
    void stop(absl::AnyInvocable<void() &&> last);

private:
    const std::unique_ptr<rtc::Thread> network, worker, signaling;
    rtc::scoped_refptr<webrtc::PeerConnectionFactoryInterface> peerFactory;
    std::mutex mutex;
    bool isStopped = false;  // guarded by `mutex`
};

// For the library's calls that report by a counted observer: `body` is called once, with an error
// that is ok() or not.
rtc::scoped_refptr<webrtc::SetRemoteDescriptionObserverInterface> whenRemoteSet(
    std::function<void(webrtc::RTCError)> body);
rtc::scoped_refptr<webrtc::SetLocalDescriptionObserverInterface> whenLocalSet(
    std::function<void(webrtc::RTCError)> body);
// With null when none could be made.
rtc::scoped_refptr<webrtc::CreateSessionDescriptionObserver> whenDescribed(
    std::function<void(std::unique_ptr<webrtc::SessionDescriptionInterface>)> body);

}  // namespace orvel
