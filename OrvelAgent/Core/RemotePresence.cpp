#include "OrvelAgent/Core/RemotePresence.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "OrvelKit/Relay/SignalTopic.h"

namespace orvel {

namespace {

constexpr const char* modeKey = "remoteAccess";
constexpr const char* unnamedPhone = "Eşleşmiş bir telefon";

}  // namespace

const char* rawValue(RemoteAccess mode) {
    switch (mode) {
        case RemoteAccess::on:
            return "on";
        case RemoteAccess::standby:
            return "standby";
        case RemoteAccess::off:
            return "off";
    }
    return "on";
}

std::optional<RemoteAccess> remoteAccessFrom(const std::string& raw) {
    for (auto mode : {RemoteAccess::on, RemoteAccess::standby, RemoteAccess::off}) {
        if (raw == rawValue(mode)) return mode;
    }
    return std::nullopt;
}

RemoteAccess storedRemoteAccess(Defaults& defaults) {
    return remoteAccessFrom(defaults.string(modeKey).value_or("")).value_or(RemoteAccess::on);
}

RemotePresence::RemotePresence(SerialQueue& agentQueue, Parts presenceParts, Defaults& userDefaults,
                               PairedDevices& pairedDevices, const Identity& agentIdentity,
                               std::string computerName)
    : queue(agentQueue),
      parts(std::move(presenceParts)),
      defaults(userDefaults),
      devices(pairedDevices),
      identity(agentIdentity),
      macName(std::move(computerName)) {}

RemotePresence::~RemotePresence() = default;

void RemotePresence::start() {
    queue.assertCurrent();
    apply();
}

void RemotePresence::setMode(RemoteAccess mode) {
    queue.assertCurrent();
    if (stopped) return;
    // What the user has closed stays closed, on a full disk too.
    unstoredMode = defaults.set(modeKey, rawValue(mode)) ? std::nullopt : std::optional(mode);
    unlockedUntil.reset();
    apply();
}

void RemotePresence::stop() {
    queue.assertCurrent();
    stopped = true;
    leaveRelay();
}

RemoteAccess RemotePresence::mode() const {
    queue.assertCurrent();
    return unstoredMode ? *unstoredMode : storedRemoteAccess(defaults);
}

void RemotePresence::apply() {
    if (mode() == RemoteAccess::off) {
        leaveRelay();
        if (onRelay) onRelay(false);
    } else if (!channel) {
        joinRelay();
    }
}

void RemotePresence::joinRelay() {
    const auto config = parts.relay();
    if (!config) {
        std::fprintf(stderr, "orvel: relay not configured\n");
        return;
    }
    const std::string deviceID = identity.fingerprint(), host = config->url.host();
    std::fprintf(stderr, "orvel: relay %s as %s\n", host.empty() ? "?" : host.c_str(),
                 deviceID.c_str());
    channel = parts.makeChannel(*config, SignalTopic::name(deviceID));

    // What an abandoned channel still says is not heard.
    const auto whileCurrent = [weak = weak_from_this(), &queue = queue,
                               mine = channel.get()](auto handler) {
        return [weak, &queue, mine, handler](auto value) {
            queue.post([weak, mine, handler, value = std::move(value)] {
                const auto self = weak.lock();
                if (!self) return;
                self->queue.assertCurrent();
                if (self->channel.get() == mine) handler(*self, value);
            });
        };
    };
    channel->onJoined = whileCurrent([](RemotePresence& self, bool joined) {
        if (joined) self.parts.prefetchIceServers();
        if (self.onRelay) self.onRelay(joined);
    });
    channel->onBroadcast = whileCurrent([](RemotePresence& self, const Bytes& payload) {
        self.queue.assertCurrent();
        self.receive(payload);
    });
    channel->start();
}

void RemotePresence::leaveRelay() {
    if (const auto left = std::exchange(channel, nullptr)) left->stop();
    pendingOffers.clear();
    std::vector<std::shared_ptr<RTCPhoneSession>> ending;  // the end of one takes it out
    for (const auto& [key, session] : sessions)
        ending.push_back(session.link);
    for (const auto& link : ending)
        link->close();
}

void RemotePresence::receive(const Bytes& payload) {
    SignalEnvelope envelope;
    std::optional<SignalMessage> message;
    try {
        envelope = SignalEnvelope::fromJson(textOf(payload));
        const auto keys = devices.trustedKeys();
        message = envelope.open(
            identity,
            [&](const std::string& deviceID) -> std::optional<Bytes> {
                const auto found = keys.find(deviceID);
                return found == keys.end() ? std::nullopt : std::optional(found->second);
            },
            queue.wallTime());
    } catch (const JsonError&) {
        return;
    } catch (const SignalError&) {
        return;
    }
    const bool isRepeated = seen.wasSeen(envelope.box, queue.now());
    obey(*message, {envelope.from, envelope.session}, isRepeated);
}

void RemotePresence::obey(const SignalMessage& message, const Sender& from, bool isRepeated) {
    if (message.as<SignalMessage::Probe>()) {
        reply(from, presence());
    } else if (message.as<SignalMessage::Unlock>()) {
        unlock(from, isRepeated);
    } else if (const auto* offered = message.as<SignalMessage::Offer>()) {
        if (!isRepeated) offer(from, offered->sdp);
    } else if (const auto* found = message.as<SignalMessage::Candidate>()) {
        candidate(from, found->candidate);
    } else if (message.as<SignalMessage::Bye>()) {
        if (auto* session = sessionOf(from)) session->close();
    }
}

void RemotePresence::unlock(const Sender& from, bool isRepeated) {
    if (mode() != RemoteAccess::standby) return reply(from, presence());
    if (!isRepeated) {
        // Whole seconds: that is what the phone hears, too.
        unlockedUntil = std::chrono::floor<std::chrono::seconds>(queue.wallTime()) + unlockTime;
    } else if (isLocked()) {
        return reply(from, presence());
    }
    const auto until =
        std::chrono::duration_cast<std::chrono::seconds>(unlockedUntil->time_since_epoch());
    reply(from, {SignalMessage::Unlocked{static_cast<double>(until.count())}});
    if (!isRepeated && onUnlock) {
        onUnlock(devices.nameOf(from.deviceID).value_or(unnamedPhone), unlockedUntil);
    }
}

void RemotePresence::offer(const Sender& from, const std::string& sdp) {
    if (isLocked()) return reply(from, presence());
    if (sessions.count(from.session) || pendingOffers.count(from.session)) return;
    if (pendingOffers.size() >= maxPendingOffers) {
        pendingOffers.erase(
            std::min_element(pendingOffers.begin(), pendingOffers.end(),
                             [](auto& a, auto& b) { return a.second.number < b.second.number; }));
    }
    const std::uint64_t number = ++lastNumber;
    pendingOffers[from.session] = {from.deviceID, sdp, {}, number};
    parts.iceServers([weak = weak_from_this(), &queue = queue, session = from.session,
                      number](std::vector<IceServer> servers) {
        queue.post([weak, session, number, servers = std::move(servers)] {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            self->serversArrived(session, number, servers);
        });
    });
}

void RemotePresence::serversArrived(const std::string& session, std::uint64_t number,
                                    std::vector<IceServer> servers) {
    const auto found = pendingOffers.find(session);
    // Forgotten meanwhile, or forgotten and offered again.
    if (found == pendingOffers.end() || found->second.number != number) return;
    PendingOffer pending = std::move(found->second);
    pendingOffers.erase(found);
    // Locked meanwhile, or the phone is not paired any more.
    if (isLocked()) return reply({pending.deviceID, session}, presence());
    if (!devices.isTrusted(pending.deviceID)) return;
    open(session, std::move(pending), std::move(servers));
}

void RemotePresence::open(const std::string& session, PendingOffer pending,
                          std::vector<IceServer> servers) {
    limitSessions();
    const Sender sender{pending.deviceID, session};
    const PeerConnection::Configuration configuration{
        std::move(servers), defaults.boolean("relayOnly").value_or(false)};
    const auto link = std::make_shared<RTCPhoneSession>(queue, parts.makePeer, pending.deviceID,
                                                        session, configuration);
    const auto weak = weak_from_this();
    const std::weak_ptr<RTCPhoneSession> weakLink = link;
    link->onSignal = [weak, sender](const SignalMessage& message) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->reply(sender, message);
    };
    link->onEnd = [weak, weakLink] {
        const auto self = weak.lock();
        const auto ended = weakLink.lock();
        if (!self || !ended) return;
        self->queue.assertCurrent();
        self->sessionEnded(*ended);
    };
    sessions[session] = {link,
                         queue.after(admissionTime,
                                     [weakLink] {
                                         const auto late = weakLink.lock();
                                         if (late && !late->isAuthenticated()) late->close();
                                     }),
                         pending.number};
    if (onSession) onSession(link);
    link->accept(pending.sdp);
    for (const IceCandidate& early : pending.candidates)
        link->add(early);
}

void RemotePresence::limitSessions() {
    if (sessions.size() < maxSessions) return;
    const Session* oldest = nullptr;
    for (const auto& [key, session] : sessions) {
        if (session.link->isAuthenticated()) continue;
        if (!oldest || session.number < oldest->number) oldest = &session;
    }
    if (!oldest) return;
    const auto link = oldest->link;
    link->close();
}

void RemotePresence::candidate(const Sender& from, const IceCandidate& candidate) {
    if (auto* session = sessionOf(from)) return session->add(candidate);
    const auto pending = pendingOffers.find(from.session);
    if (pending == pendingOffers.end() || pending->second.deviceID != from.deviceID) return;
    auto& early = pending->second.candidates;
    if (early.size() < maxEarlyCandidates) early.push_back(candidate);
}

void RemotePresence::sessionEnded(const RTCPhoneSession& ended) {
    const auto found = sessions.find(ended.session());
    if (found == sessions.end() || found->second.link.get() != &ended) return;
    const auto link = found->second.link;
    sessions.erase(found);
    if (link->isAuthenticated() && mode() == RemoteAccess::standby && unlockedUntil) {
        unlockedUntil.reset();
        if (onUnlock) onUnlock(link->name(), std::nullopt);
    }
    if (onSessionEnd) onSessionEnd(*link);
}

bool RemotePresence::isLocked() const {
    return mode() == RemoteAccess::standby && !(unlockedUntil && *unlockedUntil > queue.wallTime());
}

SignalMessage RemotePresence::presence() const {
    if (isLocked()) return {SignalMessage::Standby{macName}};
    return {SignalMessage::Here{macName, isBusy && isBusy()}};
}

void RemotePresence::reply(const Sender& to, const SignalMessage& message) {
    const auto keys = devices.trustedKeys();
    const auto key = keys.find(to.deviceID);
    if (key == keys.end() || !channel) return;
    const auto envelope =
        SignalEnvelope::seal(message, identity, key->second, to.session, queue.wallTime());
    if (!envelope) return;
    const std::string json = envelope->toJson();
    channel->send(Bytes(json.begin(), json.end()));
}

// Only the phone that a conversation was begun by has a say in it.
RTCPhoneSession* RemotePresence::sessionOf(const Sender& sender) const {
    const auto found = sessions.find(sender.session);
    if (found == sessions.end() || found->second.link->deviceID() != sender.deviceID)
        return nullptr;
    return found->second.link.get();
}

}  // namespace orvel
