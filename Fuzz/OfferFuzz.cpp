#include <algorithm>
#include <chrono>
#include <future>

#include "Fuzz/Fuzz.h"
#include "OrvelAgent/Rtc/PhoneOffer.h"
#include "OrvelAgent/Rtc/WebRtc.h"

namespace {

using namespace orvel;

void judge(const std::string& offer) {
    const auto reordered = PhoneOffer::preferH264(offer);
    claim(PhoneOffer::preferH264(reordered) == reordered, "the order is final");
    auto before = offer, after = reordered;
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    claim(before == after, "nothing is added or lost");
    claim(PhoneOffer::maxMessageBytes(offer, 1000) <= 1000, "a message has its limit");
}

// The library says yes or no, and does not stop.
void offerToLibrary(const std::string& offer) {
    static SerialQueue queue("orvel.agent");
    static WebRtc webrtc(CompressionSession::create, {.loopbackOnly = true});
    std::promise<void> outcome;
    std::shared_ptr<PeerConnection> peer;
    queue.post([&] {
        peer = webrtc.factory()({}, queue);
        peer->onAnswer = [&](const std::string&) { outcome.set_value(); };
        peer->onRefusal = [&] { outcome.set_value(); };
        peer->accept(offer);
    });
    claim(outcome.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready,
          "an offer has an outcome");
    std::promise<void> closed;
    queue.post([&] {
        peer->close();
        peer = nullptr;
        closed.set_value();
    });
    closed.get_future().wait();
}

}  // namespace

// What the library's threads still hold of OpenSSL when the process ends is no leak of ours.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libcrypto.so\nleak:libssl.so\n";
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string offer(reinterpret_cast<const char*>(data), size);
    judge(offer);
    offerToLibrary(offer);
    return 0;
}
