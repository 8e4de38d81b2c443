#pragma once

#include "OrvelAgent/Rtc/LibWebRtc.h"

namespace orvel {

// The library's SCTP, but with a send queue of 64 KiB instead of 2 MB.
//
// All channels of a connection share this queue, and while it is full none can add to it. A file
// fills it at once; with two megabytes in it, sound waits until the path has carried most of them.
// What has left the queue and is not acknowledged does not count, so this costs no speed.
class ShortSctpQueue final : public webrtc::SctpTransportFactoryInterface {
public:
    static constexpr std::size_t queueBytes = 64 * 1024;
    // The queue takes messages again below this. The channels are then served in the order in which
    // they were opened: the room must be more than one of them has waiting.
    static constexpr std::size_t lowBytes = 24 * 1024;

    // `network` outlives this.
    explicit ShortSctpQueue(rtc::Thread& network);

    std::unique_ptr<cricket::SctpTransportInternal> CreateSctpTransport(
        rtc::PacketTransportInternal* transport) override;

private:
    rtc::Thread& network;
};

}  // namespace orvel
