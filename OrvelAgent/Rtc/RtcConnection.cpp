#include "OrvelAgent/Rtc/RtcConnection.h"

#include <algorithm>
#include <cstdio>

#include "OrvelAgent/Rtc/PhoneOffer.h"
#include "OrvelAgent/Rtc/RtcThreads.h"
#include "pc/ice_server_parsing.h"

namespace orvel {

namespace {

using Peer = webrtc::PeerConnectionInterface;

constexpr std::size_t longestCandidate = 4096;  // bytes
constexpr const char* trackName = "screen";

bool isUsable(const Peer::IceServer& server) {
    cricket::ServerAddresses stun;
    std::vector<cricket::RelayServerConfig> turn;
    return webrtc::ParseIceServersOrError({server}, &stun, &turn).ok();
}

Peer::IceServers usable(const std::vector<IceServer>& servers) {
    Peer::IceServers result;
    for (const auto& server : servers) {
        Peer::IceServer converted;
        converted.urls = server.urls;
        converted.username = server.username.value_or("");
        converted.password = server.credential.value_or("");
        if (isUsable(converted)) {
            result.push_back(std::move(converted));
        } else {
            std::fprintf(stderr, "orvel: an ICE server of the relay cannot be used\n");
        }
    }
    return result;
}

Peer::RTCConfiguration configurationFrom(const PeerConnection::Configuration& wanted) {
    Peer::RTCConfiguration configuration;
    configuration.servers = usable(wanted.iceServers);
    if (wanted.relayOnly) configuration.type = Peer::kRelay;
    configuration.sdp_semantics = webrtc::SdpSemantics::kUnifiedPlan;
    configuration.bundle_policy = Peer::kBundlePolicyMaxBundle;
    configuration.continual_gathering_policy = Peer::GATHER_CONTINUALLY;
    // A busy computer leaves pictures out by itself; nobody wants to see it coarser.
    configuration.set_cpu_adaptation(false);
    return configuration;
}

PeerConnection::Channel channelOf(const std::string& label) {
    if (label == "files") return PeerConnection::Channel::files;
    if (label == "audio") return PeerConnection::Channel::audio;
    return PeerConnection::Channel::control;
}

std::size_t indexOf(PeerConnection::Channel channel) {
    return static_cast<std::size_t>(channel);
}

class StatisticsReader : public webrtc::RTCStatsCollectorCallback {
public:
    std::function<void(PeerConnection::VideoStatistics)> completion;

    void OnStatsDelivered(const rtc::scoped_refptr<const webrtc::RTCStatsReport>& report) override {
        PeerConnection::VideoStatistics all;
        for (const auto* sent : report->GetStatsOfType<webrtc::RTCOutboundRTPStreamStats>()) {
            if (sent->kind.ValueOrDefault("") != "video") continue;
            all.encoder = sent->encoder_implementation.ValueOrDefault("");
            all.width = static_cast<int>(sent->frame_width.ValueOrDefault(0));
            all.height = static_cast<int>(sent->frame_height.ValueOrDefault(0));
            all.framesEncoded = sent->frames_encoded.ValueOrDefault(0);
            all.keyframesEncoded = sent->key_frames_encoded.ValueOrDefault(0);
            all.picturesLost = sent->pli_count.ValueOrDefault(0);
            all.bytesSent = sent->bytes_sent.ValueOrDefault(0);
            all.targetBitrate = sent->target_bitrate.ValueOrDefault(0);
            all.framesPerSecond = sent->frames_per_second.ValueOrDefault(0);
            all.encodeSeconds = sent->total_encode_time.ValueOrDefault(0);
            const auto* codec = report->Get(sent->codec_id.ValueOrDefault(""));
            if (codec && codec->type() == std::string(webrtc::RTCCodecStats::kType)) {
                all.codec = codec->cast_to<webrtc::RTCCodecStats>().mime_type.ValueOrDefault("");
            }
        }
        for (const auto* pair : report->GetStatsOfType<webrtc::RTCIceCandidatePairStats>()) {
            all.availableBitrate =
                std::max(all.availableBitrate, pair->available_outgoing_bitrate.ValueOrDefault(0));
        }
        completion(std::move(all));
    }
};

}  // namespace

class RtcConnection::Line final : public webrtc::DataChannelObserver {
public:
    Line(RtcConnection& connection, rtc::scoped_refptr<webrtc::DataChannelInterface> opened)
        : kind(channelOf(opened->label())), channel(std::move(opened)), owner(connection) {}
    ~Line() override { channel->UnregisterObserver(); }

    bool isOpen() const { return channel->state() == webrtc::DataChannelInterface::kOpen; }
    bool isOver() const { return channel->state() == webrtc::DataChannelInterface::kClosed; }
    bool isCurrent() const { return owner.current[indexOf(kind)] == this; }

    const Channel kind;
    const rtc::scoped_refptr<webrtc::DataChannelInterface> channel;
    bool wasOpen = false;

private:
    void OnStateChange() override { owner.lineChanged(*this); }
    void OnMessage(const webrtc::DataBuffer& message) override {
        if (kind == Channel::control && isCurrent()) owner.hear(message);
    }
    // `sent` bytes have gone to the transport, also those of a message that never waited.
    void OnBufferedAmountChange(std::uint64_t sent) override {
        if (isCurrent()) owner.linesTook(kind, static_cast<std::int64_t>(sent));
    }

    RtcConnection& owner;
};

RtcConnection::RtcConnection(std::function<void(Report)> carry,
                             rtc::scoped_refptr<ScreenTrackSource> screen)
    : report(std::move(carry)),
      undelivered(std::make_shared<std::atomic<std::int64_t>>(0)),
      source(std::move(screen)) {}

RtcConnection::~RtcConnection() = default;

// What the library calls later: nothing once this is closed.
template <class Body>
auto RtcConnection::whenOpen(Body body) {
    return [weak = weak_from_this(), body = std::move(body)](auto&& outcome) {
        const auto self = weak.lock();
        if (self && self->peer) body(*self, std::forward<decltype(outcome)>(outcome));
    };
}

void RtcConnection::open(RtcThreads& threads, const PeerConnection::Configuration& wanted) {
    webrtc::PeerConnectionDependencies dependencies(this);
    auto made = threads.factory().CreatePeerConnectionOrError(configurationFrom(wanted),
                                                              std::move(dependencies));
    if (!made.ok()) {
        std::fprintf(stderr, "orvel: no WebRTC connection could be made: %s\n",
                     made.error().message());
        return refuse();
    }
    peer = made.MoveValue();
    track = threads.factory().CreateVideoTrack(trackName, source.get());
}

void RtcConnection::refuse() {
    report([](Owner& owner) { owner.refused(); });
}

void RtcConnection::accept(const std::string& offer) {
    if (!peer || peer->signaling_state() != Peer::kStable || hasRemote) return;
    if (!PhoneOffer::isPlausible(offer)) return refuse();
    maxMessageBytes = PhoneOffer::maxMessageBytes(offer, PeerConnection::maxMessageBytes);
    auto description =
        webrtc::CreateSessionDescription(webrtc::SdpType::kOffer, PhoneOffer::preferH264(offer));
    if (!description) return refuse();
    peer->SetRemoteDescription(std::move(description),
                               whenRemoteSet(whenOpen([](auto& self, webrtc::RTCError error) {
                                   error.ok() ? self.remoteIsSet() : self.refuse();
                               })));
}

void RtcConnection::remoteIsSet() {
    hasRemote = true;
    for (const auto& candidate : std::exchange(early, {}))
        add(candidate);
    attachVideo();
    const auto described = [](auto& self,
                              std::unique_ptr<webrtc::SessionDescriptionInterface> answer) {
        std::string sdp;
        if (!answer || !answer->ToString(&sdp)) return self.refuse();
        self.peer->SetLocalDescription(
            std::move(answer), whenLocalSet(self.whenOpen([sdp](auto& me, webrtc::RTCError error) {
                error.ok() ? me.localIsSet(sdp) : me.refuse();
            })));
    };
    peer->CreateAnswer(whenDescribed(whenOpen(described)).get(), {});
}

// The first video section gets the screen. Nothing else is sent, and nothing is received.
void RtcConnection::attachVideo() {
    for (const auto& transceiver : peer->GetTransceivers()) {
        const bool isScreen =
            !videoSender && transceiver->media_type() == cricket::MEDIA_TYPE_VIDEO;
        if (isScreen && transceiver->sender()->SetTrack(track.get())) {
            videoSender = transceiver->sender();
            videoSender->SetStreams({trackName});
            transceiver->SetDirectionWithError(webrtc::RtpTransceiverDirection::kSendOnly);
        } else {
            transceiver->SetDirectionWithError(webrtc::RtpTransceiverDirection::kInactive);
        }
    }
}

void RtcConnection::localIsSet(const std::string& sdp) {
    limitVideo();
    report([sdp](Owner& owner) { owner.answered(sdp); });
}

// Before the answer is set, a sender has no encodings that limits could apply to, and the library
// would cut the start down to its own limit for the connection, 2 Mbit/s.
void RtcConnection::limitVideo() {
    if (!videoSender) return;
    // The library would begin at 300 kbit/s and stay there for seconds.
    webrtc::BitrateSettings bitrate;
    bitrate.min_bitrate_bps = minBitrate;
    bitrate.start_bitrate_bps = startBitrate;
    peer->SetBitrate(bitrate);
    auto parameters = videoSender->GetParameters();
    parameters.degradation_preference = webrtc::DegradationPreference::MAINTAIN_RESOLUTION;
    for (auto& encoding : parameters.encodings) {
        encoding.max_bitrate_bps = maxBitrate;
        encoding.max_framerate = maxFrameRate;
    }
    if (!parameters.encodings.empty()) videoSender->SetParameters(parameters);
}

void RtcConnection::add(const IceCandidate& candidate) {
    if (!peer || candidate.sdp.size() > longestCandidate) return;
    if (!hasRemote) {
        if (early.size() < std::size_t{PeerConnection::maxCandidates}) early.push_back(candidate);
        return;
    }
    if (candidates == PeerConnection::maxCandidates) return;
    std::unique_ptr<webrtc::IceCandidateInterface> parsed(webrtc::CreateIceCandidate(
        candidate.sdpMid.value_or(""), candidate.sdpMLineIndex, candidate.sdp, nullptr));
    if (!parsed) return;
    ++candidates;
    peer->AddIceCandidate(std::move(parsed), [](const webrtc::RTCError&) {});
}

void RtcConnection::OnIceCandidate(const webrtc::IceCandidateInterface* candidate) {
    IceCandidate found;
    if (!peer || !candidate->ToString(&found.sdp)) return;
    found.sdpMid = candidate->sdp_mid();
    found.sdpMLineIndex = candidate->sdp_mline_index();
    report([found](Owner& owner) { owner.found(found); });
}

void RtcConnection::OnIceConnectionChange(Peer::IceConnectionState state) {
    const auto changed = [this](State now) {
        if (peer) report([now](Owner& owner) { owner.changed(now); });
    };
    switch (state) {
        case Peer::kIceConnectionConnected:
        case Peer::kIceConnectionCompleted:
            return changed(State::connected);
        case Peer::kIceConnectionDisconnected:
            return changed(State::disconnected);
        case Peer::kIceConnectionFailed:
        case Peer::kIceConnectionClosed:
            return changed(State::failed);
        default:
            return;
    }
}

// The encryption may fail where ICE does not.
void RtcConnection::OnConnectionChange(Peer::PeerConnectionState state) {
    if (peer && state == Peer::PeerConnectionState::kFailed) {
        report([](Owner& owner) { owner.changed(State::failed); });
    }
}

void RtcConnection::OnDataChannel(rtc::scoped_refptr<webrtc::DataChannelInterface> channel) {
    if (!peer) return;
    lines.erase(
        std::remove_if(lines.begin(), lines.end(),
                       [](const auto& line) { return line->isOver() && !line->isCurrent(); }),
        lines.end());
    if (lines.size() == maxChannels) {
        return report([](Owner& owner) { owner.changed(State::failed); });
    }
    auto& line = *lines.emplace_back(std::make_unique<Line>(*this, std::move(channel)));
    current[indexOf(line.kind)] = &line;
    linesTook(line.kind, untaken[indexOf(line.kind)]);
    line.channel->RegisterObserver(&line);
    lineChanged(line);
}

void RtcConnection::lineChanged(Line& line) {
    if (!peer || !line.isCurrent()) return;
    const auto kind = line.kind;
    if (line.isOpen() && !std::exchange(line.wasOpen, true)) {
        report([kind](Owner& owner) { owner.channelChanged(kind, true); });
    } else if (line.isOver()) {
        linesTook(kind, untaken[indexOf(kind)]);
        report([kind](Owner& owner) { owner.channelChanged(kind, false); });
    }
}

void RtcConnection::linesTook(Channel channel, std::int64_t bytes) {
    if (!peer || bytes == 0) return;
    untaken[indexOf(channel)] -= bytes;
    report([channel, bytes](Owner& owner) { owner.taken(channel, bytes); });
}

void RtcConnection::hear(const webrtc::DataBuffer& message) {
    if (!peer || message.size() > PeerConnection::maxMessageBytes) return;
    constexpr std::int64_t perMessage = 256;  // what each takes beside its bytes
    const auto cost = static_cast<std::int64_t>(message.size()) + perMessage;
    if ((*undelivered += cost) > maxUndelivered) {
        return report([](Owner& owner) { owner.changed(State::failed); });
    }
    Bytes bytes(message.data.cdata(), message.data.cdata() + message.size());
    report([bytes = std::move(bytes), waiting = undelivered, cost](Owner& owner) mutable {
        *waiting -= cost;
        owner.received(std::move(bytes));
    });
}

void RtcConnection::send(Channel channel, const rtc::CopyOnWriteBuffer& message,
                         PeerConnection::Form form) {
    if (!peer) return;
    const auto bytes = static_cast<std::int64_t>(message.size());
    untaken[indexOf(channel)] += bytes;
    auto* const line = current[indexOf(channel)];
    const bool isBinary = form == PeerConnection::Form::binary;
    const bool isTooLong = message.size() > maxMessageBytes;  // the library would close the channel
    if (isTooLong) {
        std::fprintf(stderr, "orvel: a message of %zu bytes is too long for the phone, left out\n",
                     message.size());
    }
    if (isTooLong || !line || !line->isOpen() ||
        !line->channel->Send(webrtc::DataBuffer(message, isBinary))) {
        linesTook(channel, bytes);
    }
}

void RtcConnection::queryVideo(std::function<void(PeerConnection::VideoStatistics)> completion) {
    if (!peer) return;
    auto reader = rtc::make_ref_counted<StatisticsReader>();
    reader->completion = std::move(completion);
    peer->GetStats(reader.get());
}

void RtcConnection::close() {
    const auto closing = std::exchange(peer, nullptr);
    if (!closing) return;
    current = {};
    lines.clear();
    closing->Close();
    videoSender = nullptr;
    track = nullptr;
    source = nullptr;
    early.clear();
}

}  // namespace orvel
