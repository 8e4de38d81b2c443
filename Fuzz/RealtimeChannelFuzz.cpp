#include "Fuzz/Fuzz.h"
#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Relay/FakeWebSocket.h"
#include "OrvelKit/Relay/RealtimeChannel.h"

// A relay that says whatever it likes, a line a message, an empty line being time that passes.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvel;
    VirtualTime time;
    SerialQueue queue("orvel.realtime", time);
    FakeWebSockets sockets;
    auto channel = RealtimeChannel::make(
        queue, sockets.maker(), RelayConfig(*Url::parse("ws://relay"), "key"), "orvel-fuzz");
    bool joined = false;
    channel->onJoined = [&](bool now) {
        claim(now != joined, "onJoined tells changes only");
        joined = now;
    };
    channel->onBroadcast = [](const Bytes& payload) {
        claim(JsonDocument(textOf(payload)).root().isObject(), "a broadcast is an object");
    };
    channel->start();
    time.runPending();
    std::string_view rest = textOf({data, size});
    while (!rest.empty()) {
        const auto end = std::min(rest.find('\n'), rest.size());
        const std::string line(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.empty()) {
            time.advance(std::chrono::seconds(7));
        } else {
            queue.post([peer = sockets.made.back(), line] { peer->events.onMessage(line); });
            time.runPending();
        }
        std::size_t open = 0;
        for (const auto& peer : sockets.made)
            open += !peer->isGone;
        claim(open <= 1, "one connection at a time");
        claim(!joined || open == 1, "joined is connected");
    }
    channel.reset();
    time.runPending();
    return 0;
}
