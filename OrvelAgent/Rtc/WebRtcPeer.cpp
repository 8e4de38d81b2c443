#include "OrvelAgent/Rtc/WebRtcPeer.h"

#include "OrvelAgent/Rtc/RtcLibrary.h"

namespace orvel {

WebRtcPeer::WebRtcPeer(std::shared_ptr<RtcLibrary> shared, SerialQueue& ownersQueue)
    : library(std::move(shared)),
      queue(ownersQueue),
      source(rtc::make_ref_counted<ScreenTrackSource>()) {}

// Runs `body` with the connection on the signaling thread, if it is still open by then.
template <class Body>
void WebRtcPeer::onConnection(Body body) {
    library->post([weak = connection, body = std::move(body)](RtcThreads&) mutable {
        if (const auto open = weak.lock()) body(*open);
    });
}

WebRtcPeer::~WebRtcPeer() {
    library->post([shared = library.get(), weak = connection](RtcThreads&) {
        const auto open = weak.lock();
        if (!open) return;
        open->close();
        shared->closed(open);
    });
}

void WebRtcPeer::open(const Configuration& configuration) {
    auto made = std::make_shared<RtcConnection>(
        [weak = weak_from_this(), &target = queue](RtcConnection::Report report) {
            target.post([weak, report = std::move(report)] {
                const auto self = weak.lock();
                if (!self) return;
                self->queue.assertCurrent();
                if (!self->isClosed) report(*self);
            });
        },
        source);
    connection = made;
    library->post([shared = library.get(), made, configuration](RtcThreads& threads) {
        shared->opened(made);
        made->open(threads, configuration);
    });
}

WebRtcPeer::Flow& WebRtcPeer::flow(Channel channel) {
    return flows[static_cast<std::size_t>(channel)];
}

void WebRtcPeer::accept(std::string offer) {
    queue.assertCurrent();
    onConnection([offer = std::move(offer)](auto& open) { open.accept(offer); });
}

void WebRtcPeer::add(const IceCandidate& candidate) {
    queue.assertCurrent();
    onConnection([candidate](auto& open) { open.add(candidate); });
}

void WebRtcPeer::send(Channel channel, ByteView message, Form form) {
    queue.assertCurrent();
    if (isClosed || message.empty() || message.size() > maxMessageBytes || !flow(channel).isOpen) {
        return;
    }
    flow(channel).buffered += static_cast<std::int64_t>(message.size());
    onConnection([channel, form, bytes = rtc::CopyOnWriteBuffer(message.data(), message.size())](
                     auto& open) { open.send(channel, bytes, form); });
}

bool WebRtcPeer::isOpen(Channel channel) const {
    queue.assertCurrent();
    return flows[static_cast<std::size_t>(channel)].isOpen;
}

std::int64_t WebRtcPeer::bufferedAmount(Channel channel) const {
    queue.assertCurrent();
    return flows[static_cast<std::size_t>(channel)].buffered;
}

PeerConnection::PictureSink WebRtcPeer::pictureSink() {
    return [track = source](std::shared_ptr<const PixelBuffer> picture) {
        track->push(std::move(picture));
    };
}

void WebRtcPeer::queryVideo(std::function<void(VideoStatistics)> completion) {
    queue.assertCurrent();
    onConnection([weak = weak_from_this(), completion = std::move(completion)](auto& open) {
        open.queryVideo([weak, completion](VideoStatistics statistics) {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.post([weak, completion, statistics = std::move(statistics)] {
                const auto peer = weak.lock();
                if (!peer) return;
                peer->queue.assertCurrent();
                if (!peer->isClosed) completion(statistics);
            });
        });
    });
}

void WebRtcPeer::close() {
    queue.assertCurrent();
    if (std::exchange(isClosed, true)) return;
    flows = {};
    library->post([shared = library.get(), weak = connection](RtcThreads&) {
        const auto open = weak.lock();
        if (!open) return;
        open->close();
        shared->closed(open);
    });
}

void WebRtcPeer::answered(std::string sdp) {
    if (onAnswer) onAnswer(std::move(sdp));
}

void WebRtcPeer::refused() {
    if (onRefusal) onRefusal();
}

void WebRtcPeer::found(IceCandidate candidate) {
    if (onCandidate) onCandidate(std::move(candidate));
}

void WebRtcPeer::changed(State state) {
    if (onState) onState(state);
}

void WebRtcPeer::channelChanged(Channel channel, bool isOpen) {
    queue.assertCurrent();
    flow(channel).isOpen = isOpen;
    if (onChannel) onChannel(channel, isOpen);
}

void WebRtcPeer::received(Bytes message) {
    if (onMessage) onMessage(std::move(message));
}

void WebRtcPeer::taken(Channel channel, std::int64_t bytes) {
    queue.assertCurrent();
    flow(channel).buffered -= bytes;
    if (onDrained) onDrained(channel);
}

}  // namespace orvel
