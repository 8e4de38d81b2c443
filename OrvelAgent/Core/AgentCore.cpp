#include "OrvelAgent/Core/AgentCore.h"

#include <cstdio>

#include "OrvelAgent/Core/Admission.h"

namespace orvel {

namespace {

constexpr const char* secretService = "com.halverton.orvel.agent";
constexpr const char* activityReason = "Orvel: telefon bağlandı";

std::string nameOf(const AgentCore::Options& options, HostInfo& host) {
    std::string name = options.name ? *options.name : host.computerName().value_or("");
    return name.empty() ? "Mac" : name;
}

std::string versionOf(HostInfo& host) {
    return host.shortVersion().value_or("?") + " (" + host.buildVersion().value_or("?") + ")";
}

}  // namespace

std::shared_ptr<AgentCore> AgentCore::make(Parts parts, const Options& options) {
    std::shared_ptr<AgentCore> core(new AgentCore(std::move(parts), options));
    core->wire();
    return core;
}

AgentCore::AgentCore(Parts parts, const Options& coreOptions)
    : macName(nameOf(coreOptions, parts.host)),
      identity(Identity::load(parts.secrets, secretService)),
      agentVersion(versionOf(parts.host)),
      queue(parts.queue),
      mainQueue(parts.mainQueue),
      defaults(parts.defaults),
      permissions(parts.permissions),
      power(parts.power),
      options(coreOptions),
      streamer(std::make_shared<ScreenStreamer>(parts.captureQueue, parts.audioQueue,
                                                std::move(parts.screen),
                                                std::move(parts.compression))),
      lan(queue, std::move(parts.listener), std::move(parts.advertiser), identity),
      devices(defaults),
      remote(std::make_shared<RemotePresence>(queue, std::move(parts.remote), defaults, devices,
                                              identity, macName)),
      dispatch({parts.queue, parts.filesQueue, parts.poster, parts.files, parts.host.homeFolder(),
                streamer},
               {
                   [this](PhoneLink& link, const Hello& hello) {
                       queue.assertCurrent();
                       handleHello(link, hello);
                   },
                   [this](PhoneLink& link, std::uint32_t displayID) {
                       queue.assertCurrent();
                       selectDisplay(link, displayID);
                   },
                   [this](const std::string& text) {
                       onMain([text](AgentCore& core) {
                           if (core.onClipboard) core.onClipboard(text);
                       });
                   },
               }),
      streamPixels(Admission::defaultPixels) {
    pairing.onCode = [this](std::optional<std::string> code) {
        onMain([code = std::move(code)](AgentCore& core) {
            if (core.onPairingCode) core.onPairingCode(code);
        });
    };
    pairing.onRequest = [this](std::optional<PairingRequest> request) {
        onMain([request = std::move(request)](AgentCore& core) {
            if (core.onPairingRequest) core.onPairingRequest(request);
        });
    };
}

AgentCore::~AgentCore() = default;

// Apart from construction, because weak references to this object exist only now.
void AgentCore::wire() {
    const auto weak = weak_from_this();
    const auto video = [weak](FrameBuffer frame, bool isKeyframe) {
        if (auto self = weak.lock()) {
            self->onQueue([frame = std::move(frame), isKeyframe](AgentCore& core) mutable {
                core.queue.assertCurrent();
                core.sendVideo(std::move(frame), isKeyframe);
            });
        }
    };
    streamer->onFormat = [video](FrameBuffer format) { video(std::move(format), true); };
    streamer->onFrame = video;
    streamer->onAudio = [weak](AudioPacket packet) {
        if (auto self = weak.lock()) {
            self->onQueue([packet = std::move(packet)](AgentCore& core) {
                core.queue.assertCurrent();
                core.sendAudio(packet);
            });
        }
    };
    // The presence's callbacks come on the queue.
    remote->onRelay = [weak](bool joined) {
        if (auto self = weak.lock()) {
            self->onMain([joined](AgentCore& core) {
                if (core.onRelay) core.onRelay(joined);
            });
        }
    };
    remote->onUnlock = [weak](std::string name, std::optional<WallTime> until) {
        if (auto self = weak.lock()) {
            self->onMain([name = std::move(name), until](AgentCore& core) {
                if (core.onUnlock) core.onUnlock(name, until);
            });
        }
    };
    remote->onSession = [weak](const std::shared_ptr<RTCPhoneSession>& session) {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->internetSessionArrived(session);
    };
    remote->onSessionEnd = [weak](const RTCPhoneSession& session) {
        auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->linkEnded(session);
    };
    remote->isBusy = [weak] {
        auto self = weak.lock();
        if (!self) return false;
        self->queue.assertCurrent();
        return self->active != nullptr;
    };
    streamer->onStop = [weak](ScreenStreamer::CaptureID ended, const auto& error) {
        auto self = weak.lock();
        if (!self) return;
        std::fprintf(stderr, "orvel: capture stopped: %s\n",
                     error ? error->description.c_str() : "by the system");
        self->onQueue([ended](AgentCore& core) {
            core.queue.assertCurrent();
            if (core.active && core.capture == ended) core.active->close();
        });
    };
}

void AgentCore::onQueue(UniqueFunction<void(AgentCore&)> action) {
    queue.post([weak = weak_from_this(), action = std::move(action)] {
        if (auto self = weak.lock()) action(*self);
    });
}

void AgentCore::onMain(UniqueFunction<void(AgentCore&)> action) {
    mainQueue.post([weak = weak_from_this(), action = std::move(action)] {
        if (auto self = weak.lock()) action(*self);
    });
}

void AgentCore::start() {
    onQueue([](AgentCore& core) {
        core.queue.assertCurrent();
        core.setStatus({Status::Starting{}});
        LanService::Options service{core.macName, core.options.port, core.options.address};
        core.lan.start(service, {[&core](std::uint16_t port) {
                                     core.queue.assertCurrent();
                                     core.onMain([port](AgentCore& self) {
                                         if (self.onListening) self.onListening(port);
                                     });
                                     core.setStatus({Status::Waiting{}});
                                 },
                                 [&core](std::string message) {
                                     core.queue.assertCurrent();
                                     core.setStatus({Status::Failed{std::move(message)}});
                                 },
                                 [&core](std::shared_ptr<ClientSession> session) {
                                     core.queue.assertCurrent();
                                     core.sessionArrived(std::move(session));
                                 }});
        core.remote->start();
        core.publishDevices();
    });
}

void AgentCore::shutDown(std::function<void()> completion) {
    onQueue([completion = std::move(completion)](AgentCore& core) {
        core.queue.assertCurrent();
        core.lan.stop();
        core.remote->stop();
        const auto ending = core.links;  // closing one takes it out of the table
        for (const auto& [key, link] : ending)
            link->close();
        core.streamer->stop(core.capture, [weak = core.weak_from_this(), completion] {
            if (auto self = weak.lock()) self->onMain([completion](AgentCore&) { completion(); });
        });
    });
}

void AgentCore::disconnect() {
    onQueue([](AgentCore& core) {
        core.queue.assertCurrent();
        if (core.active) core.active->close();
    });
}

void AgentCore::forget(const std::string& deviceID) {
    onQueue([deviceID](AgentCore& core) {
        core.queue.assertCurrent();
        core.devices.forget(deviceID);
        const auto all = core.links;
        for (const auto& [key, link] : all) {
            if (link->deviceID() == deviceID) link->close();
        }
        core.publishDevices();
    });
}

void AgentCore::forgetAll() {
    onQueue([](AgentCore& core) {
        core.queue.assertCurrent();
        core.devices.forgetAll();
        if (core.active) core.active->close();
        core.publishDevices();
    });
}

void AgentCore::rejectPairing() {
    onQueue([](AgentCore& core) {
        core.queue.assertCurrent();
        const auto session = core.pairing.shown();
        if (!session) return;
        core.pairing.remove(*session);
        session->reject(Rejection::pinRequired);
    });
}

void AgentCore::allowPairing(const std::string& deviceID) {
    onQueue([deviceID](AgentCore& core) {
        core.queue.assertCurrent();
        if (auto waiting = core.pairing.allow(deviceID))
            core.pair(waiting->session, waiting->hello);
    });
}

void AgentCore::setRemoteAccess(RemoteAccess mode, std::function<void()> completion) {
    onQueue([mode, completion = std::move(completion)](AgentCore& core) {
        core.queue.assertCurrent();
        core.remote->setMode(mode);
        if (completion) core.onMain([completion](AgentCore&) { completion(); });
    });
}

void AgentCore::sendClipboard(std::string text) {
    tellPhone({Control::Clipboard{std::move(text)}});
}

void AgentCore::sendFrontApp(std::string bundleID, std::string name) {
    tellPhone({Control::FrontApp{std::move(bundleID), std::move(name)}});
}

void AgentCore::sendTextFocus(bool focused) {
    tellPhone({Control::TextFocus{focused}});
}

void AgentCore::tellPhone(Control control) {
    onQueue([control = std::move(control)](AgentCore& core) {
        core.queue.assertCurrent();
        // Its welcome is the first that a phone hears.
        if (core.active && core.active->isAuthenticated() && core.welcomed)
            core.active->sendControl(control);
    });
}

void AgentCore::sessionArrived(std::shared_ptr<ClientSession> session) {
    const auto weak = weak_from_this();
    const std::weak_ptr<ClientSession> weakSession = session;
    links[session.get()] = session;
    session->onSecured = [weak, weakSession] {
        auto self = weak.lock();
        auto secured = weakSession.lock();
        if (!self || !secured) return;
        self->queue.assertCurrent();
        self->sessionSecured(secured);
    };
    session->onControl = [weak, weakSession](const Control& control) {
        auto self = weak.lock();
        auto link = weakSession.lock();
        if (!self || !link) return;
        self->queue.assertCurrent();
        self->dispatch.dispatch(control, link, self->isActive(*link));
    };
    session->onEnd = [weak, weakSession] {
        auto self = weak.lock();
        auto ended = weakSession.lock();
        if (!self || !ended) return;
        self->queue.assertCurrent();
        self->lan.ended(*ended);
        self->pairing.remove(*ended);
        self->linkEnded(*ended);
    };
    session->start();
}

void AgentCore::sessionSecured(const std::shared_ptr<ClientSession>& session) {
    const auto deviceID = session->deviceID();
    const bool isKnown = deviceID && devices.isTrusted(*deviceID);
    if (!lan.secured(*session, isKnown)) return session->close();
    if (deviceID && !isKnown && session->pairingCode()) pairing.showCode(session);
}

void AgentCore::internetSessionArrived(const std::shared_ptr<RTCPhoneSession>& session) {
    links[session.get()] = session;
    session->onControl = [weak = weak_from_this(),
                          weakSession = std::weak_ptr(session)](const Control& control) {
        auto self = weak.lock();
        auto link = weakSession.lock();
        if (!self || !link) return;
        self->queue.assertCurrent();
        self->dispatch.dispatch(control, link, self->isActive(*link));
    };
}

void AgentCore::linkEnded(const PhoneLink& link) {
    const auto ended = linkOf(link);
    links.erase(&link);
    dispatch.linkEnded(link, isActive(link));
    if (!isActive(link)) return;
    active.reset();
    welcomed = false;
    streamer->setSink(nullptr);
    streamer->stop(capture);
    setStatus({Status::Waiting{}});
}

void AgentCore::handleHello(PhoneLink& link, const Hello& hello) {
    const auto known = linkOf(link);
    if (auto session = std::dynamic_pointer_cast<ClientSession>(known)) {
        handleLanHello(session, hello);
    } else if (auto internet = std::dynamic_pointer_cast<RTCPhoneSession>(known)) {
        handleInternetHello(internet, hello);
    }
}

// Over the internet nobody pairs: there is no code, and the device ID is that of the key which the
// phone's envelopes open with.
void AgentCore::handleInternetHello(const std::shared_ptr<RTCPhoneSession>& session,
                                    const Hello& hello) {
    Admission::Facts facts;
    facts.screenRecording = permissions.screenRecording();
    facts.accessibility = permissions.accessibility();
    facts.deviceID = session->deviceID();
    facts.isTrusted = devices.isTrusted(*facts.deviceID);
    const auto verdict = Admission::judge(hello, facts);
    if (const auto* reason = std::get_if<Rejection>(&verdict)) return session->reject(*reason);
    admit(session, hello);
}

void AgentCore::handleLanHello(const std::shared_ptr<ClientSession>& session, const Hello& hello) {
    const auto deviceID = session->deviceID();
    const Admission::Facts facts{permissions.screenRecording(),
                                 permissions.accessibility(),
                                 deviceID,
                                 deviceID && devices.isTrusted(*deviceID),
                                 session->pairingCode(),
                                 session->peerKey().has_value()};
    const auto verdict = Admission::judge(hello, facts);
    if (const auto* reason = std::get_if<Rejection>(&verdict)) {
        pairing.remove(*session);
        session->reject(*reason);
    } else if (std::holds_alternative<Admission::KnownPhone>(verdict)) {
        admitLocally(session, hello);
    } else if (defaults.boolean("askBeforePairing").value_or(false)) {
        pairing.ask(session, hello);
    } else {
        pair(session, hello);
    }
}

void AgentCore::pair(const std::shared_ptr<ClientSession>& session, const Hello& hello) {
    devices.trust(hello.deviceID, *session->peerKey(), queue.wallTime());
    admitLocally(session, hello);
}

void AgentCore::admitLocally(const std::shared_ptr<ClientSession>& session, const Hello& hello) {
    pairing.remove(*session);
    lan.admitted(*session);
    admit(session, hello);
}

void AgentCore::admit(const std::shared_ptr<PhoneLink>& link, const Hello& hello) {
    if (active && active != link) active->close();
    link->setAuthenticated(true);
    link->setName(hello.deviceName);
    devices.wasAdmitted(hello.deviceID, hello.deviceName, queue.wallTime());
    publishDevices();
    active = link;
    welcomed = false;
    videoFlow.reset();
    streamer->setEncodes(link->wantsEncodedVideo());
    const auto internet = std::dynamic_pointer_cast<RTCPhoneSession>(link);
    streamer->setSink(internet ? internet->pictureSink() : nullptr);
    streamer->setAudio(true);
    power.declareUserActivity(activityReason);
    streamPixels = Admission::streamPixels(hello.maxPixels);
    startCapture(link, true);
}

void AgentCore::startCapture(const std::shared_ptr<PhoneLink>& link, bool isAdmission) {
    const auto weak = weak_from_this();
    const std::weak_ptr<PhoneLink> weakLink = link;
    capture = streamer->start(
        selectedDisplay, streamPixels,
        [weak, weakLink, isAdmission](ScreenStreamer::StartResult result) {
            auto self = weak.lock();
            if (!self) return;
            self->onQueue([weakLink, isAdmission, result = std::move(result)](AgentCore& core) {
                core.queue.assertCurrent();
                const auto waiting = weakLink.lock();
                if (!waiting) return;
                if (const auto* display = std::get_if<ScreenStreamer::Display>(&result)) {
                    if (!core.isActive(*waiting)) return;
                    core.dispatch.displayCaptured(display->id);
                    core.sendWelcome(*waiting, *display);
                    if (isAdmission) {
                        core.setStatus({Status::Connected{waiting->name(), waiting->isInternet()}});
                    }
                    return;
                }
                const auto& failure = std::get<ScreenStreamer::StartFailure>(result);
                // A later start of the same link answers, or that of the link that displaced it.
                if (failure.reason == ScreenStreamer::StartFailure::Reason::superseded) return;
                std::fprintf(stderr, "capture failed: %s\n", failure.description.c_str());
                waiting->reject(Rejection::permissionsMissing);
            });
        });
}

void AgentCore::sendWelcome(PhoneLink& link, const ScreenStreamer::Display& display) {
    if (auto* session = dynamic_cast<ClientSession*>(&link)) session->restartVideo();
    Welcome welcome;
    welcome.macName = macName;
    welcome.screenWidth = display.pointsWidth;
    welcome.screenHeight = display.pointsHeight;
    welcome.videoWidth = display.videoWidth;
    welcome.videoHeight = display.videoHeight;
    welcome.agentKey = identity.publicKey();
    welcome.displays = display.all;
    welcome.displayID = display.id;
    welcome.protocolVersion = Orvel::protocolVersion;
    welcome.agentVersion = agentVersion;
    link.sendControl({welcome});
    welcomed = true;
    streamer->requestKeyframe();
}

void AgentCore::selectDisplay(PhoneLink& link, std::uint32_t displayID) {
    selectedDisplay = displayID;
    startCapture(linkOf(link), false);
}

void AgentCore::sendVideo(FrameBuffer frame, bool isKeyframe) {
    if (!active || !active->wantsEncodedVideo() || !active->isAuthenticated() || !welcomed) return;
    switch (videoFlow.offer(isKeyframe)) {
        case VideoFlow::Decision::drop:
            return;
        case VideoFlow::Decision::dropAndRequestKeyframe:
            streamer->requestKeyframe();
            return;
        case VideoFlow::Decision::send:
            break;
    }
    active->sendVideo(std::move(frame), isKeyframe,
                      [weak = weak_from_this(), token = videoFlow.token()] {
                          auto self = weak.lock();
                          if (!self) return;
                          self->queue.assertCurrent();
                          self->videoFlow.completed(token);
                      });
}

void AgentCore::sendAudio(const AudioPacket& packet) {
    if (active && active->isAuthenticated() && welcomed) active->sendAudio(packet);
}

void AgentCore::setStatus(Status status) {
    onMain([status = std::move(status)](AgentCore& core) {
        if (core.onStatus) core.onStatus(status);
    });
}

void AgentCore::publishDevices() {
    onMain([list = devices.list()](AgentCore& core) {
        if (core.onDevices) core.onDevices(list);
    });
}

std::shared_ptr<PhoneLink> AgentCore::linkOf(const PhoneLink& link) const {
    const auto found = links.find(&link);
    return found == links.end() ? nullptr : found->second;
}

bool AgentCore::isActive(const PhoneLink& link) const {
    return active.get() == &link;
}

}  // namespace orvel
