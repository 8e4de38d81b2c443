#include "Phone/InternetConnection.h"

#include <array>
#include <cstdio>
#include <random>
#include <utility>

#include "OrvelKit/Relay/SignalEnvelope.h"
#include "OrvelKit/Relay/SignalTopic.h"
#include "OrvelKit/Wire/Framing.h"
#include "Phone/H264.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using Closed = AgentLink::Closed;
using Reason = Closed::Reason;

constexpr Duration probeTime = 2s;    // the relay keeps nothing: a probe may have been lost
constexpr Duration serversTime = 5s;  // for the ICE servers, once the agent has answered
constexpr int channelCount = 3;
constexpr std::size_t maxWaitingBytes = 64 << 20;

// Names one conversation, and salts its keys.
std::string newSession() {
    std::random_device device;
    std::string text;
    for (int part = 0; part < 4; ++part) {
        std::array<char, 9> digits{};
        std::snprintf(digits.data(), digits.size(), "%08x", static_cast<unsigned>(device()));
        text += digits.data();
    }
    return text;
}

FrameKind kindOf(RtcPhone::Channel channel) {
    switch (channel) {
        case RtcPhone::Channel::control:
            return FrameKind::control;
        case RtcPhone::Channel::files:
            return FrameKind::file;
        case RtcPhone::Channel::audio:
            break;
    }
    return FrameKind::audio;
}

}  // namespace

InternetConnection::InternetConnection(Identity ownIdentity, Bytes key, Way wantedWay)
    : identity(std::move(ownIdentity)),
      agentKey(std::move(key)),
      agentID(Identity::fingerprint(agentKey)),
      session(newSession()),
      way(std::move(wantedWay)),
      library([this](const RtcPhones::CodedPicture& picture) { return takePicture(picture); }),
      ownQueue(std::make_unique<SerialQueue>("orvel.phone.internet")),
      queue(*ownQueue) {
    if (way.project) account = std::make_unique<RelayAccount>(queue, *way.project, way.stateFolder);
}

InternetConnection::~InternetConnection() {
    close();
    library.stop();
    ownQueue.reset();
}

// --- Meeting on the relay ---

InternetConnection::Outcome InternetConnection::connect(Unlock unlock, Duration meeting,
                                                        Duration opening) {
    begin = std::chrono::steady_clock::now();
    queue.post([this, unlock] {
        queue.assertCurrent();
        unlocks = unlock;
        if (account) {
            account->servers([this](std::vector<IceServer> servers) {
                queue.assertCurrent();
                iceServers = std::move(servers);
                if (stage == Stage::met) offer();
            });
        } else {
            iceServers = IceServerProvider::fallback();
        }
        channel = RealtimeChannel::make(queue, systemWebSockets({}), way.relay,
                                        SignalTopic::name(agentID));
        channel->onJoined = [this](bool joined) {
            queue.assertCurrent();
            if (joined) probe();
        };
        channel->onBroadcast = [this](const Bytes& payload) {
            queue.assertCurrent();
            received(payload);
        };
        channel->start();
    });
    Lock hold(mutex);
    changed.wait_for(hold, meeting, [&] { return hasMet || outcome; });
    if (hasMet) changed.wait_for(hold, opening, [&] { return outcome.has_value(); });
    const Outcome result = outcome.value_or(hasMet ? Outcome::noConnection : Outcome::noAnswer);
    hold.unlock();
    if (result != Outcome::connected) end({Reason::notConnected, ""});
    return result;
}

void InternetConnection::probe() {
    if (stage != Stage::meeting) return;
    say({SignalMessage::Probe{}});
    nextProbe = queue.after(probeTime, [this] {
        queue.assertCurrent();
        probe();
    });
}

void InternetConnection::received(const Bytes& payload) {
    try {
        const auto envelope = SignalEnvelope::fromJson(textOf(payload));
        if (envelope.session != session) return;
        const auto keyOf = [this](const std::string& deviceID) {
            return deviceID == agentID ? std::optional(agentKey) : std::nullopt;
        };
        obey(envelope.open(identity, keyOf, queue.wallTime()));
    } catch (const JsonError&) {  // others' on this topic, or nonsense
    } catch (const SignalError&) {
    }
}

void InternetConnection::obey(const SignalMessage& message) {
    if (message.as<SignalMessage::Bye>()) return end({Reason::closedByAgent, ""});
    if (stage != Stage::meeting) {
        if (rtc) rtc->receive(message);
        return;
    }
    if (message.as<SignalMessage::Here>() || message.as<SignalMessage::Unlocked>()) return met();
    if (message.as<SignalMessage::Standby>()) {
        if (unlocks == Unlock::no) return settle(Outcome::standby);
        say({SignalMessage::Unlock{}});
    }
}

void InternetConnection::say(const SignalMessage& message) {
    if (!channel) return;
    const auto envelope =
        SignalEnvelope::seal(message, identity, agentKey, session, queue.wallTime());
    if (!envelope) return;
    const std::string json = envelope->toJson();
    channel->send(Bytes(json.begin(), json.end()));
}

// --- The session ---

void InternetConnection::met() {
    stage = Stage::met;
    nextProbe.cancel();
    {
        const Lock hold(mutex);
        hasMet = true;
        changed.notify_all();
    }
    if (iceServers) return offer();
    nextProbe = queue.after(serversTime, [this] {
        queue.assertCurrent();
        if (stage != Stage::met) return;
        iceServers = IceServerProvider::fallback();
        offer();
    });
}

void InternetConnection::offer() {
    if (closed()) return;
    stage = Stage::opening;
    nextProbe.cancel();
    RtcPhone::Options options;
    options.iceServers = *std::exchange(iceServers, std::nullopt);
    options.relayOnly = way.relayOnly;
    options.asksForVideo = way.asksForVideo;
    rtc = std::make_unique<RtcPhone>(library, queue, std::move(options));
    rtc->onSignal = [this](const SignalMessage& message) {
        queue.assertCurrent();
        say(message);
    };
    rtc->onState = [this](RtcPhone::State state) {
        queue.assertCurrent();
        stateChanged(state);
    };
    rtc->onChannel = [this](RtcPhone::Channel which, bool isOpen) {
        queue.assertCurrent();
        channelChanged(which, isOpen);
    };
    rtc->onMessage = [this](RtcPhone::Channel which, const Bytes& message) {
        queue.assertCurrent();
        messageCame(which, message);
    };
    rtc->start();
}

void InternetConnection::channelChanged(RtcPhone::Channel which, bool isOpen) {
    if (isOpen) {
        if (++openChannels < channelCount) return;
        stage = Stage::open;
        return settle(Outcome::connected);
    }
    if (which != RtcPhone::Channel::control) return;
    {
        const Lock hold(mutex);
        isControlClosed = true;
        changed.notify_all();
    }
    end({Reason::closedByAgent, ""});
}

void InternetConnection::stateChanged(RtcPhone::State state) {
    if (state != RtcPhone::State::failed) return;
    end({Reason::reset, "no way to the computer"});
    settle(Outcome::noConnection);
}

void InternetConnection::messageCame(RtcPhone::Channel which, const Bytes& message) {
    try {
        deliver(Event::decode(kindOf(which), message), message.size());
    } catch (const std::exception&) {  // the agent drops nonsense on a channel, too
    }
}

bool InternetConnection::takePicture(const RtcPhones::CodedPicture& picture) {
    AccessUnit unit = AccessUnit::fromByteStream(picture.bytes);
    if (!unit.parameterSets.empty() && unit.parameterSets != format.parameterSets) {
        format.parameterSets = std::move(unit.parameterSets);
        deliver(format, picture.bytes.size());
    }
    // Neighbours are less than half the clock's range apart, in either direction.
    if (lastTime) {
        const auto step = static_cast<std::int32_t>(picture.time - *lastTime);
        ticks += static_cast<std::uint64_t>(static_cast<std::int64_t>(step));
    } else {
        ticks = std::uint64_t{1} << 32;
    }
    lastTime = picture.time;
    const std::size_t size = unit.data.size();
    deliver(VideoFrame{picture.isKeyframe, ticks * 100 / 9, std::move(unit.data)}, size);
    return !wantsKeyframe.exchange(false);
}

void InternetConnection::deliver(Event::Case value, std::size_t size) {
    const std::size_t weight = size + sizeof(Event);
    Lock hold(mutex);
    if (ended) return;
    if (waitingBytes + weight > maxWaitingBytes) {
        hold.unlock();
        return end({Reason::reset, "too much came at once"});
    }
    waiting.emplace_back(Event{std::chrono::steady_clock::now(), std::move(value)}, weight);
    waitingBytes += weight;
    changed.notify_all();
}

void InternetConnection::send(const Control& control) {
    if (control.as<Control::RequestKeyframe>()) {
        wantsKeyframe = true;
        return;
    }
    std::string json = control.toJson();
    if (json.size() > maxControl) throw TooLong();
    queue.post([this, json = std::move(json)] {
        queue.assertCurrent();
        if (rtc && !closed()) rtc->sendText(RtcPhone::Channel::control, json);
    });
}

std::optional<AgentLink::Event> InternetConnection::next(Duration timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock hold(mutex);
    if (!changed.wait_until(hold, deadline, [&] { return !waiting.empty() || ended; }) ||
        waiting.empty()) {
        return std::nullopt;
    }
    auto [event, weight] = std::move(waiting.front());
    waiting.pop_front();
    waitingBytes -= weight;
    return std::move(event);
}

std::optional<Closed> InternetConnection::closed() const {
    const Lock hold(mutex);
    return ended;
}

// --- The end ---

void InternetConnection::end(Closed why) {
    const Lock hold(mutex);
    if (ended) return;
    ended = why;
    waiting.emplace_back(Event{std::chrono::steady_clock::now(), std::move(why)}, 0);
    if (!outcome && hasMet) outcome = Outcome::noConnection;
    changed.notify_all();
}

void InternetConnection::settle(Outcome result) {
    const Lock hold(mutex);
    if (!outcome) outcome = result;
    changed.notify_all();
}

// The goodbye has left for sure only once the agent has answered it: by ending its side.
void InternetConnection::close(Duration patience) {
    const bool wasOpen = !closed();
    end({Reason::closedHere, ""});
    runAndWait([this] {
        queue.assertCurrent();
        if (!rtc) return;
        say({SignalMessage::Bye{}});
        rtc->closeChannel(RtcPhone::Channel::control);
    });
    {
        Lock hold(mutex);
        const bool isWorthIt = wasOpen && outcome == Outcome::connected;
        if (isWorthIt) changed.wait_for(hold, patience, [&] { return isControlClosed; });
    }
    runAndWait([this] {
        queue.assertCurrent();
        nextProbe.cancel();
        rtc.reset();
        if (account) account->stop();
        if (!channel) return;
        channel->onJoined = nullptr;
        channel->onBroadcast = nullptr;
        channel->stop();
        channel.reset();
    });
    runAndWait([] {});  // the channel has stopped
}

template <class Body>
void InternetConnection::runAndWait(Body body) {
    bool done = false;
    queue.post([this, &body, &done] {
        body();
        const Lock hold(mutex);
        done = true;
        changed.notify_all();
    });
    Lock hold(mutex);
    changed.wait(hold, [&] { return done; });
}

}  // namespace orvel::phone
