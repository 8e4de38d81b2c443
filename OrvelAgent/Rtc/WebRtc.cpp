#include "OrvelAgent/Rtc/WebRtc.h"

#include "OrvelAgent/Rtc/RtcConnection.h"
#include "OrvelAgent/Rtc/RtcLibrary.h"
#include "OrvelAgent/Rtc/VideoEncoders.h"
#include "OrvelAgent/Rtc/WebRtcPeer.h"

namespace orvel {

RtcLibrary::RtcLibrary(CompressionSession::Factory sessions, WebRtc::Options wanted)
    : encoder(std::move(sessions)), options(wanted) {}

RtcThreads* RtcLibrary::threads() {
    const std::lock_guard lock(mutex);
    if (!started && !isStopped) {
        using Networks = RtcThreads::Networks;
        // This end only sends. But a phone that offers to send, and is declined, still makes the
        // library prepare for it, and without decoders it stops the process.
        started = std::make_unique<RtcThreads>(std::make_unique<VideoEncoders>(encoder),
                                               webrtc::CreateBuiltinVideoDecoderFactory(),
                                               options.loopbackOnly  ? Networks::onlyLoopback
                                               : options.loopbackToo ? Networks::allAndLoopback
                                                                     : Networks::all);
    }
    return started.get();
}

void RtcLibrary::post(absl::AnyInvocable<void(RtcThreads&) &&> task) {
    if (auto* const running = threads()) {
        running->post([running, task = std::move(task)]() mutable { std::move(task)(*running); });
    }
}

void RtcLibrary::stop() {
    RtcThreads* running = nullptr;
    {
        const std::lock_guard lock(mutex);
        isStopped = true;
        running = started.get();
    }
    if (!running) return;
    running->stop([this] {
        for (const auto& connection : std::exchange(connections, {}))
            connection->close();
    });
}

void RtcLibrary::opened(std::shared_ptr<RtcConnection> connection) {
    connections.insert(std::move(connection));
}

void RtcLibrary::closed(const std::shared_ptr<RtcConnection>& connection) {
    connections.erase(connection);
}

WebRtc::WebRtc(CompressionSession::Factory encoder, Options options)
    : library(std::make_shared<RtcLibrary>(std::move(encoder), options)) {}

WebRtc::~WebRtc() {
    stop();
}

PeerConnection::Factory WebRtc::factory() {
    return
        [made = library](const PeerConnection::Configuration& configuration, SerialQueue& queue) {
            auto peer = std::make_shared<WebRtcPeer>(made, queue);
            peer->open(configuration);
            return peer;
        };
}

void WebRtc::stop() {
    library->stop();
}

}  // namespace orvel
