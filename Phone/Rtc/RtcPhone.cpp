#include "Phone/Rtc/RtcPhone.h"

#include <algorithm>
#include <array>
#include <set>

#include "OrvelAgent/Rtc/RtcThreads.h"
#include "Phone/Rtc/UndecodedVideo.h"
#include "api/video_codecs/builtin_video_encoder_factory.h"

namespace orvel::phone {

namespace {

using Peer = webrtc::PeerConnectionInterface;
constexpr std::array<const char*, 3> labels = {"control", "files", "audio"};

std::size_t indexOf(RtcPhone::Channel channel) {
    return static_cast<std::size_t>(channel);
}

Peer::RTCConfiguration configurationFrom(const RtcPhone::Options& options) {
    Peer::RTCConfiguration configuration;
    for (const auto& server : options.iceServers) {
        Peer::IceServer converted;
        converted.urls = server.urls;
        converted.username = server.username.value_or("");
        converted.password = server.credential.value_or("");
        configuration.servers.push_back(std::move(converted));
    }
    if (options.relayOnly) configuration.type = Peer::kRelay;
    configuration.sdp_semantics = webrtc::SdpSemantics::kUnifiedPlan;
    configuration.bundle_policy = Peer::kBundlePolicyMaxBundle;
    configuration.continual_gathering_policy = Peer::GATHER_CONTINUALLY;
    return configuration;
}

class StatisticsReader : public webrtc::RTCStatsCollectorCallback {
public:
    std::function<void(RtcPhone::VideoStatistics)> completion;
    void OnStatsDelivered(const rtc::scoped_refptr<const webrtc::RTCStatsReport>& report) override {
        RtcPhone::VideoStatistics all;
        for (const auto* got : report->GetStatsOfType<webrtc::RTCInboundRTPStreamStats>()) {
            if (got->kind.ValueOrDefault("") != "video") continue;
            all.decoder = got->decoder_implementation.ValueOrDefault("");
            all.framesDecoded = got->frames_decoded.ValueOrDefault(0);
            all.keyframesDecoded = got->key_frames_decoded.ValueOrDefault(0);
            all.framesDropped = got->frames_dropped.ValueOrDefault(0);
            all.bytesReceived = got->bytes_received.ValueOrDefault(0);
            all.framesPerSecond = got->frames_per_second.ValueOrDefault(0);
            const auto* codec = report->Get(got->codec_id.ValueOrDefault(""));
            if (codec && codec->type() == std::string(webrtc::RTCCodecStats::kType)) {
                all.codec = codec->cast_to<webrtc::RTCCodecStats>().mime_type.ValueOrDefault("");
            }
        }
        completion(std::move(all));
    }
};

}  // namespace

class RtcPhones::Library {
public:
    // The encoders are never used, but without one for the codec that arrives the library sends no
    // reports of what it received, and the agent's estimate of the path falls to nothing.
    Library(bool loopbackOnly, std::unique_ptr<webrtc::VideoDecoderFactory> decoders)
        : threads(webrtc::CreateBuiltinVideoEncoderFactory(), std::move(decoders),
                  loopbackOnly ? RtcThreads::Networks::onlyLoopback
                               : RtcThreads::Networks::allAndLoopback) {}

    void stop();

    RtcThreads threads;
    std::set<std::shared_ptr<RtcPhone::Connection>> connections;  // the signaling thread's
};

struct RtcPhone::Owner {
    RtcPhone& phone;
};

// The library's side, on its signaling thread.
class RtcPhone::Connection final : public std::enable_shared_from_this<Connection>,
                                   private webrtc::PeerConnectionObserver,
                                   private rtc::VideoSinkInterface<webrtc::VideoFrame> {
public:
    using Report = UniqueFunction<void(RtcPhone&)>;
    std::function<void(Report)> report;
    std::function<void(const Picture&)> onPicture;

    // What the library calls later: nothing once this is closed.
    template <class Body>
    auto whenOpen(Body body) {
        return [weak = weak_from_this(), body = std::move(body)](auto outcome) {
            const auto self = weak.lock();
            if (self && self->peer) body(*self, std::move(outcome));
        };
    }

    void open(RtcThreads& threads, const Options& wanted) {
        webrtc::PeerConnectionDependencies dependencies(this);
        auto made = threads.factory().CreatePeerConnectionOrError(configurationFrom(wanted),
                                                                  std::move(dependencies));
        if (!made.ok()) return fail();
        peer = made.MoveValue();
        for (std::size_t i = 0; i < labels.size(); ++i) {
            webrtc::DataChannelInit init;
            if (i == indexOf(Channel::audio)) {
                init.ordered = false;
                init.maxRetransmits = 0;
            }
            const auto label =
                i == indexOf(Channel::control) ? wanted.controlLabel : std::string(labels[i]);
            auto channel = peer->CreateDataChannelOrError(label, &init);
            if (!channel.ok()) return fail();
            lines[i] = std::make_unique<Line>(*this, static_cast<Channel>(i), channel.MoveValue());
        }
        if (wanted.asksForVideo) askForVideo();
        peer->CreateOffer(whenDescribed(whenOpen([](auto& self, auto offer) {
                              self.described(std::move(offer));
                          })).get(),
                          {});
    }

    void accept(const std::string& answer) {
        if (!peer || peer->signaling_state() != Peer::kHaveLocalOffer) return;
        auto description = webrtc::CreateSessionDescription(webrtc::SdpType::kAnswer, answer);
        if (!description) return fail();
        peer->SetRemoteDescription(std::move(description),
                                   whenRemoteSet(whenOpen([](auto& self, webrtc::RTCError error) {
                                       if (!error.ok()) self.fail();
                                   })));
    }

    void add(const IceCandidate& candidate) {
        if (!peer) return;
        std::unique_ptr<webrtc::IceCandidateInterface> parsed(webrtc::CreateIceCandidate(
            candidate.sdpMid.value_or(""), candidate.sdpMLineIndex, candidate.sdp, nullptr));
        if (parsed) peer->AddIceCandidate(std::move(parsed), [](const webrtc::RTCError&) {});
    }

    void send(Channel channel, const rtc::CopyOnWriteBuffer& bytes, bool isBinary) {
        if (!peer) return;
        const auto& line = lines[indexOf(channel)];
        if (line && line->channel->state() == webrtc::DataChannelInterface::kOpen) {
            line->channel->Send(webrtc::DataBuffer(bytes, isBinary));
        }
    }

    void closeChannel(Channel channel) {
        if (peer && lines[indexOf(channel)]) lines[indexOf(channel)]->channel->Close();
    }

    void queryVideo(std::function<void(VideoStatistics)> completion) {
        if (!peer) return;
        auto reader = rtc::make_ref_counted<StatisticsReader>();
        reader->completion = std::move(completion);
        peer->GetStats(reader.get());
    }

    void close() {
        const auto closing = std::exchange(peer, nullptr);
        if (!closing) return;
        if (video) video->RemoveSink(this);
        video = nullptr;
        lines = {};
        closing->Close();
    }

private:
    class Line final : public webrtc::DataChannelObserver {
    public:
        Line(Connection& connection, Channel which,
             rtc::scoped_refptr<webrtc::DataChannelInterface> made)
            : channel(std::move(made)), owner(connection), kind(which) {
            channel->RegisterObserver(this);
        }
        ~Line() override { channel->UnregisterObserver(); }
        const rtc::scoped_refptr<webrtc::DataChannelInterface> channel;

    private:
        void OnStateChange() override {
            const auto state = channel->state();
            const bool isOpen = state == webrtc::DataChannelInterface::kOpen;
            if (!isOpen && state != webrtc::DataChannelInterface::kClosed) return;
            owner.report([which = kind, isOpen](RtcPhone& phone) {
                if (phone.onChannel) phone.onChannel(which, isOpen);
            });
        }
        void OnMessage(const webrtc::DataBuffer& message) override {
            const auto* first = message.data.cdata();
            owner.report([which = kind,
                          bytes = Bytes(first, first + message.size())](RtcPhone& phone) mutable {
                if (phone.onMessage) phone.onMessage(which, std::move(bytes));
            });
        }
        Connection& owner;
        const Channel kind;
    };

    void fail() {
        report([](RtcPhone& phone) {
            if (phone.onState) phone.onState(State::failed);
        });
    }

    void askForVideo() {
        webrtc::RtpTransceiverInit init;
        init.direction = webrtc::RtpTransceiverDirection::kRecvOnly;
        if (!peer->AddTransceiver(cricket::MEDIA_TYPE_VIDEO, init).ok()) fail();
    }

    void described(std::unique_ptr<webrtc::SessionDescriptionInterface> offer) {
        std::string sdp;
        if (!offer || !offer->ToString(&sdp)) return fail();
        peer->SetLocalDescription(std::move(offer),
                                  whenLocalSet(whenOpen([sdp](auto& self, webrtc::RTCError error) {
                                      if (!error.ok()) return self.fail();
                                      self.signal({SignalMessage::Offer{sdp}});
                                      for (auto& candidate : std::exchange(self.early, {}))
                                          self.signal({SignalMessage::Candidate{candidate}});
                                      self.hasOffered = true;
                                  })));
    }

    void signal(const SignalMessage& message) {
        report([copy = std::make_shared<const SignalMessage>(message)](RtcPhone& phone) {
            if (phone.onSignal) phone.onSignal(*copy);
        });
    }

    // webrtc::PeerConnectionObserver
    void OnSignalingChange(Peer::SignalingState) override {}
    void OnIceGatheringChange(Peer::IceGatheringState) override {}
    void OnDataChannel(rtc::scoped_refptr<webrtc::DataChannelInterface>) override {}
    void OnIceCandidate(const webrtc::IceCandidateInterface* candidate) override {
        IceCandidate found;
        if (!peer || !candidate->ToString(&found.sdp)) return;
        found.sdpMid = candidate->sdp_mid();
        found.sdpMLineIndex = candidate->sdp_mline_index();
        if (hasOffered) {
            signal({SignalMessage::Candidate{found}});
        } else {
            early.push_back(found);
        }
    }
    void OnIceConnectionChange(Peer::IceConnectionState state) override {
        const auto changed = [this](State now) {
            report([now](RtcPhone& phone) {
                if (phone.onState) phone.onState(now);
            });
        };
        if (state == Peer::kIceConnectionConnected) changed(State::connected);
        if (state == Peer::kIceConnectionDisconnected) changed(State::disconnected);
        if (state == Peer::kIceConnectionFailed) changed(State::failed);
    }
    void OnTrack(rtc::scoped_refptr<webrtc::RtpTransceiverInterface> transceiver) override {
        if (!peer || video || transceiver->media_type() != cricket::MEDIA_TYPE_VIDEO) return;
        auto track = transceiver->receiver()->track();
        video = rtc::scoped_refptr<webrtc::VideoTrackInterface>(
            static_cast<webrtc::VideoTrackInterface*>(track.get()));
        video->AddOrUpdateSink(this, rtc::VideoSinkWants());
    }

    // rtc::VideoSinkInterface, on the library's decoding thread
    void OnFrame(const webrtc::VideoFrame& frame) override {
        if (!onPicture) return;
        const auto planes = frame.video_frame_buffer()->ToI420();
        if (!planes) return;
        onPicture({planes->width(), planes->height(), planes->DataY(), planes->DataU(),
                   planes->DataV(), planes->StrideY(), planes->StrideU()});
    }

    rtc::scoped_refptr<Peer> peer;  // null: not open
    rtc::scoped_refptr<webrtc::VideoTrackInterface> video;
    std::array<std::unique_ptr<Line>, labels.size()> lines;
    std::vector<IceCandidate> early;
    bool hasOffered = false;
};

void RtcPhones::Library::stop() {
    threads.stop([this] {
        for (const auto& connection : std::exchange(connections, {}))
            connection->close();
    });
}

RtcPhones::RtcPhones(bool loopbackOnly)
    : library(std::make_shared<Library>(loopbackOnly, webrtc::CreateBuiltinVideoDecoderFactory())) {
}

RtcPhones::RtcPhones(CodedPictureHandler onCodedPicture)
    : library(std::make_shared<Library>(
          false, std::make_unique<UndecodedVideo>(std::move(onCodedPicture)))) {}

RtcPhones::~RtcPhones() {
    stop();
}

void RtcPhones::stop() {
    library->stop();
}

RtcPhone::RtcPhone(RtcPhones& phones, SerialQueue& phonesQueue, Options wanted)
    : library(phones.library), queue(phonesQueue), options(std::move(wanted)) {}

RtcPhone::~RtcPhone() {
    close();
}

void RtcPhone::start() {
    owner = std::make_shared<Owner>(Owner{*this});
    auto made = std::make_shared<Connection>();
    made->onPicture = onPicture;
    made->report = [weak = std::weak_ptr(owner), &target = queue](Connection::Report report) {
        target.post([weak, report = std::move(report)] {
            if (const auto alive = weak.lock()) report(alive->phone);
        });
    };
    connection = made;
    auto& shared = *library;
    library->threads.post([&shared, made, wanted = options] {
        shared.connections.insert(made);
        made->open(shared.threads, wanted);
    });
}

void RtcPhone::receive(const SignalMessage& message) {
    library->threads.post([weak = connection, message] {
        const auto open = weak.lock();
        if (!open) return;
        if (const auto* answer = message.as<SignalMessage::Answer>()) open->accept(answer->sdp);
        if (const auto* path = message.as<SignalMessage::Candidate>()) open->add(path->candidate);
    });
}

void RtcPhone::sendText(Channel channel, const std::string& text) {
    const rtc::CopyOnWriteBuffer bytes(text.data(), text.size());
    library->threads.post([weak = connection, channel, bytes] {
        if (const auto open = weak.lock()) open->send(channel, bytes, false);
    });
}

void RtcPhone::sendBytes(Channel channel, ByteView given) {
    const rtc::CopyOnWriteBuffer bytes(given.data(), given.size());
    library->threads.post([weak = connection, channel, bytes] {
        if (const auto open = weak.lock()) open->send(channel, bytes, true);
    });
}

void RtcPhone::queryVideo(std::function<void(VideoStatistics)> completion) {
    library->threads.post([weak = connection, weakOwner = std::weak_ptr(owner), &target = queue,
                           completion = std::move(completion)] {
        const auto open = weak.lock();
        if (!open) return;
        open->queryVideo([weakOwner, &target, completion](VideoStatistics statistics) {
            target.post([weakOwner, completion, statistics = std::move(statistics)] {
                if (weakOwner.lock()) completion(statistics);
            });
        });
    });
}

void RtcPhone::closeChannel(Channel channel) {
    library->threads.post([weak = connection, channel] {
        if (const auto open = weak.lock()) open->closeChannel(channel);
    });
}

void RtcPhone::close() {
    if (!std::exchange(owner, nullptr)) return;
    auto& shared = *library;
    library->threads.post([&shared, weak = connection] {
        const auto open = weak.lock();
        if (!open) return;
        open->close();
        shared.connections.erase(open);
    });
}

}  // namespace orvel::phone
