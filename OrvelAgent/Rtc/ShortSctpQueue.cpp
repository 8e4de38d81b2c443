#include "OrvelAgent/Rtc/ShortSctpQueue.h"

namespace orvel {

namespace {

class SocketFactory final : public dcsctp::DcSctpSocketFactory {
public:
    std::unique_ptr<dcsctp::DcSctpSocketInterface> Create(
        absl::string_view logPrefix, dcsctp::DcSctpSocketCallbacks& callbacks,
        std::unique_ptr<dcsctp::PacketObserver> observer,
        const dcsctp::DcSctpOptions& wanted) override {
        auto options = wanted;
        options.max_send_buffer_size = ShortSctpQueue::queueBytes;
        options.total_buffered_amount_low_threshold = ShortSctpQueue::lowBytes;
        return DcSctpSocketFactory::Create(logPrefix, callbacks, std::move(observer), options);
    }
};

}  // namespace

ShortSctpQueue::ShortSctpQueue(rtc::Thread& networkThread) : network(networkThread) {}

std::unique_ptr<cricket::SctpTransportInternal> ShortSctpQueue::CreateSctpTransport(
    rtc::PacketTransportInternal* transport) {
    return std::make_unique<webrtc::DcSctpTransport>(
        &network, transport, webrtc::Clock::GetRealTimeClock(), std::make_unique<SocketFactory>());
}

}  // namespace orvel
