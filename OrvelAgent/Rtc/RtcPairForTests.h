#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>

#include "OrvelAgent/Core/RTCPhoneSession.h"
#include "OrvelAgent/Platform/Fake/H264Decoder.h"
#include "OrvelAgent/Rtc/WebRtc.h"
#include "OrvelKit/Wire/Files.h"
#include "Phone/Rtc/RtcPhone.h"

namespace orvel {

// A session and its phone in one process, connected over the loopback interface with the real
// library; signals go from one to the other without a relay. What arrives is kept under a lock.
class RtcPair {
public:
    using Channel = phone::RtcPhone::Channel;
    using Clock = std::chrono::steady_clock;

    // What the phone got.
    struct Received {
        int openChannels = 0, closedChannels = 0;
        std::vector<Control> controls;
        std::int64_t fileBytes = 0;
        int fileEnds = 0;
        std::vector<std::pair<std::uint32_t, Clock::time_point>> audio;  // number and arrival
        int pictures = 0;
        Clock::time_point firstPicture;
        H264Decoder::Picture picture;  // the last
        // Of the session.
        std::vector<Control> heard;
        std::string offer, answer;
        int agentCandidates = 0;
        int ends = 0;
        bool phoneFailed = false;
    };

    explicit RtcPair(CompressionSession::Factory encoder = CompressionSession::create)
        : webrtc(std::move(encoder), {.loopbackOnly = true}), phones(/*loopbackOnly=*/true) {}
    ~RtcPair() {
        end();
        webrtc.stop();
        phones.stop();
    }

    // Changes the phone's offer, or keeps it back: then the session gets none.
    std::function<std::optional<std::string>(std::string)> alterOffer;
    // Pictures are only counted, which takes less.
    bool keepsPictures = true;

    void start(phone::RtcPhone::Options options = {}) {
        {
            const std::lock_guard lock(mutex);
            received = {};
        }
        on(agentQueue, [&] {
            const auto make = [this](const auto& configuration, SerialQueue& queue) {
                auto made = webrtc.factory()(configuration, queue);
                peer = made;
                return made;
            };
            session = std::make_shared<RTCPhoneSession>(agentQueue, make, "aaaaaaaaaaaaaaaa",
                                                        "talk", PeerConnection::Configuration{});
            session->onSignal = [this](const SignalMessage& message) { fromAgent(message); };
            session->onControl = [this](const Control& control) {
                note([&](auto& all) { all.heard.push_back(control); });
            };
            session->onEnd = [this] { note([](auto& all) { ++all.ends; }); };
        });
        on(phoneQueue, [&] {
            phone = std::make_unique<phone::RtcPhone>(phones, phoneQueue, std::move(options));
            phone->onSignal = [this](const SignalMessage& message) { fromPhone(message); };
            phone->onChannel = [this](Channel, bool isOpen) {
                note([&](auto& all) { ++(isOpen ? all.openChannels : all.closedChannels); });
            };
            phone->onState = [this](phone::RtcPhone::State state) {
                if (state == phone::RtcPhone::State::failed) {
                    note([](auto& all) { all.phoneFailed = true; });
                }
            };
            phone->onMessage = [this](Channel channel, const Bytes& message) {
                keep(channel, message);
            };
            phone->onPicture = [this](const phone::RtcPhone::Picture& picture) { keep(picture); };
            phone->start();
        });
    }
    bool connect(phone::RtcPhone::Options options = {}) {
        start(std::move(options));
        return isOpenAtBothEnds();
    }
    // Waits; the phone sees its channels open before the session does.
    bool isOpenAtBothEnds() {
        using Kind = PeerConnection::Channel;
        bool isOpen = false;
        if (!waitFor([](const auto& all) { return all.openChannels == 3; })) return false;
        for (int i = 0; i < 1000 && !isOpen; ++i) {
            on(agentQueue, [&] {
                const auto open = peer.lock();
                isOpen = open && open->isOpen(Kind::control) && open->isOpen(Kind::files) &&
                         open->isOpen(Kind::audio);
            });
            if (!isOpen) waitFor([](const auto&) { return false; }, std::chrono::milliseconds(5));
        }
        return isOpen;
    }

    void end() {
        on(agentQueue, [&] {
            if (session) session->close();
            session = nullptr;
        });
        on(phoneQueue, [&] { phone = nullptr; });
    }

    // Runs `body` as a task and waits for it.
    static void on(SerialQueue& queue, const std::function<void()>& body) {
        std::promise<void> done;
        queue.post([&] {
            body();
            done.set_value();
        });
        done.get_future().wait();
    }
    template <class Condition>
    bool waitFor(Condition condition, Clock::duration bound = std::chrono::seconds(30)) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, bound, [&] { return condition(received); });
    }
    template <class Read>
    auto read(Read reader) {
        const std::lock_guard lock(mutex);
        return reader(received);
    }
    PeerConnection::VideoStatistics agentVideo() {
        std::promise<PeerConnection::VideoStatistics> got;
        agentQueue.post([&] { session->queryVideo([&](auto all) { got.set_value(all); }); });
        return got.get_future().get();
    }
    phone::RtcPhone::VideoStatistics phoneVideo() {
        std::promise<phone::RtcPhone::VideoStatistics> got;
        phoneQueue.post([&] { phone->queryVideo([&](auto all) { got.set_value(all); }); });
        return got.get_future().get();
    }

    SerialQueue agentQueue{"orvel.agent"}, phoneQueue{"orvel.phone"};
    WebRtc webrtc;
    phone::RtcPhones phones;
    std::shared_ptr<RTCPhoneSession> session;  // the agent queue's
    std::unique_ptr<phone::RtcPhone> phone;    // the phone queue's

private:
    template <class Change>
    void note(Change change) {
        {
            const std::lock_guard lock(mutex);
            change(received);
        }
        changed.notify_all();
    }

    void fromAgent(const SignalMessage& message) {
        note([&](auto& all) {
            if (const auto* answer = message.as<SignalMessage::Answer>()) all.answer = answer->sdp;
            if (message.as<SignalMessage::Candidate>()) ++all.agentCandidates;
        });
        phoneQueue.post([this, message] {
            if (phone) phone->receive(message);
        });
    }

    void fromPhone(const SignalMessage& message) {
        if (const auto* offer = message.as<SignalMessage::Offer>()) {
            note([&](auto& all) { all.offer = offer->sdp; });
            const auto sdp = alterOffer ? alterOffer(offer->sdp) : offer->sdp;
            if (!sdp) return;
            agentQueue.post([this, text = *sdp] {
                if (session) session->accept(text);
            });
        } else if (const auto* path = message.as<SignalMessage::Candidate>()) {
            agentQueue.post([this, candidate = path->candidate] {
                if (session) session->add(candidate);
            });
        }
    }

    void keep(Channel channel, const Bytes& message) {
        note([&](auto& all) {
            if (channel == Channel::control) {
                all.controls.push_back(Control::fromJson(textOf(message)));
            } else if (channel == Channel::audio) {
                all.audio.emplace_back(AudioPacket::decode(message).sequence, Clock::now());
            } else {
                const auto frame = FileFrame::decode(message);
                if (const auto* data = std::get_if<FileFrame::Data>(&frame.step)) {
                    all.fileBytes += static_cast<std::int64_t>(data->bytes.size());
                }
                if (std::get_if<FileFrame::End>(&frame.step)) ++all.fileEnds;
            }
        });
    }

    void keep(const phone::RtcPhone::Picture& picture) {
        const auto plane = [](const std::uint8_t* from, int stride, int width, int height) {
            std::vector<std::uint8_t> rows;
            rows.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
            for (int y = 0; y < height; ++y, from += stride)
                rows.insert(rows.end(), from, from + width);
            return rows;
        };
        H264Decoder::Picture kept;
        if (keepsPictures) {
            kept.width = picture.width;
            kept.height = picture.height;
            kept.luma = plane(picture.luma, picture.lumaStride, picture.width, picture.height);
            kept.cb =
                plane(picture.cb, picture.chromaStride, picture.width / 2, picture.height / 2);
            kept.cr =
                plane(picture.cr, picture.chromaStride, picture.width / 2, picture.height / 2);
        }
        note([&](auto& all) {
            if (++all.pictures == 1) all.firstPicture = Clock::now();
            all.picture = std::move(kept);
        });
    }

    std::weak_ptr<PeerConnection> peer;  // the agent queue's
    std::mutex mutex;
    std::condition_variable changed;
    Received received;  // guarded by `mutex`
};

// Hands pictures to a session at a steady rate, on a queue of its own, as a streamer would.
class PictureFeed {
public:
    using Source = std::function<std::shared_ptr<const PixelBuffer>()>;

    PictureFeed(PeerConnection::PictureSink target, Source pictures, Duration pictureInterval)
        : sink(std::move(target)), source(std::move(pictures)), interval(pictureInterval) {
        queue.post([this] {
            due = queue.now();
            next();
        });
    }
    ~PictureFeed() {
        RtcPair::on(queue, [this] { timer.cancel(); });
    }
    // From now on this one, again and again.
    void hold(std::shared_ptr<const PixelBuffer> picture) {
        RtcPair::on(queue, [&] { source = [picture] { return picture; }; });
    }
    int count() const { return fed; }

private:
    void next() {
        sink(source());
        ++fed;
        due = std::max(due + interval, queue.now() - interval);
        timer = queue.after(due - queue.now(), [this] { next(); });
    }

    SerialQueue queue{"orvel.capture"};
    PeerConnection::PictureSink sink;
    Source source;
    const Duration interval;
    MonotonicTime due;
    Timer timer;
    std::atomic<int> fed{0};
};

}  // namespace orvel
