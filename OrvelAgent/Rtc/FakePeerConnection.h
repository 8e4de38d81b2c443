#pragma once

#include <array>
#include <string>
#include <vector>

#include "OrvelAgent/Rtc/PeerConnection.h"

namespace orvel {

// A connection for tests: keeps what it is given; what would come from the phone or the library,
// the test does, as a task of the queue.
class FakePeerConnection final : public PeerConnection {
public:
    struct Sent {
        Channel channel;
        Bytes message;
        Form form;
    };
    Configuration configuration;
    std::vector<std::string> offers;
    std::vector<IceCandidate> candidates;
    std::vector<Sent> sent;
    std::array<bool, channelCount> open{};
    std::array<std::int64_t, channelCount> buffered{};
    int closes = 0;

    std::vector<std::string> textsOn(Channel channel) const {
        std::vector<std::string> texts;
        for (const auto& message : sent) {
            if (message.channel == channel) texts.emplace_back(textOf(message.message));
        }
        return texts;
    }
    void openAll() {
        open = {true, true, true};
        for (const auto channel : {Channel::control, Channel::files, Channel::audio})
            onChannel(channel, true);
    }
    void drain(Channel channel, std::int64_t to = 0) {
        buffered[static_cast<std::size_t>(channel)] = to;
        onDrained(channel);
    }

    void accept(std::string offer) override { offers.push_back(std::move(offer)); }
    void add(const IceCandidate& candidate) override { candidates.push_back(candidate); }
    void send(Channel channel, ByteView message, Form form) override {
        sent.push_back({channel, Bytes(message.begin(), message.end()), form});
        buffered[static_cast<std::size_t>(channel)] += static_cast<std::int64_t>(message.size());
    }
    bool isOpen(Channel channel) const override { return open[static_cast<std::size_t>(channel)]; }
    std::int64_t bufferedAmount(Channel channel) const override {
        return buffered[static_cast<std::size_t>(channel)];
    }
    PictureSink pictureSink() override {
        return [](auto) {};
    }
    void queryVideo(std::function<void(VideoStatistics)> completion) override { completion({}); }
    void close() override { ++closes; }
};

}  // namespace orvel
