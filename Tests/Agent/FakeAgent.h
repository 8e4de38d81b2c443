#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/App/HeadlessLines.h"
#include "OrvelAgent/Core/TestPhone.h"
#include "OrvelAgent/Platform/Fake/FakeCompressionSession.h"
#include "OrvelAgent/Platform/Fake/FakeEventPoster.h"
#include "OrvelAgent/Platform/Fake/FakeFileSystem.h"
#include "OrvelAgent/Platform/Fake/FakeHostInfo.h"
#include "OrvelAgent/Platform/Fake/FakeNetwork.h"
#include "OrvelAgent/Platform/Fake/FakeNotifier.h"
#include "OrvelAgent/Platform/Fake/FakePasteboard.h"
#include "OrvelAgent/Platform/Fake/FakePermissions.h"
#include "OrvelAgent/Platform/Fake/FakePower.h"
#include "OrvelAgent/Platform/Fake/FakeScreenSource.h"
#include "OrvelAgent/Platform/Fake/FakeServiceAdvertiser.h"
#include "OrvelAgent/Platform/Fake/FakeTextFocus.h"
#include "OrvelAgent/Platform/Fake/FakeWorkspace.h"
#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Base/MemorySecretStore.h"
#include "Tests/Agent/FakeRelay.h"

namespace orvel {

// The whole agent on the fake system, in virtual time: change the fakes, start() it, connect
// phones.
class FakeAgent {
public:
    FakeAgent()
        : mainQueue("main", time),
          captureQueue("orvel.capture", time),
          audioQueue("orvel.audio", time),
          filesQueue("orvel.files", time),
          queue("orvel.agent", time) {}

    void start() {
        auto advertiser = std::make_unique<FakeServiceAdvertiser>();
        advertised = advertiser.get();
        screen = std::make_shared<FakeScreen>(captureQueue, audioQueue);
        if (displays) screen->displays = *displays;
        core = AgentCore::make(
            {queue, captureQueue, audioQueue, filesQueue, mainQueue, defaults, secrets, permissions,
             power, host, poster, files, std::make_unique<FakeScreenSource>(captureQueue, screen),
             compression->factory(), std::make_unique<FakeListener>(queue, port),
             std::move(advertiser), relay.parts()},
            options);
        model = std::make_shared<AgentModel>(AgentModel::Parts{
            mainQueue, core, defaults, permissions, power, pasteboard, workspace, textFocus,
            notifier, relay.config.has_value(), [this] { ++rests; },
            [](WallTime wallTime) {
                return shortTime(wallTime, QLocale(QLocale::Turkish), QTimeZone::utc());
            }});
        const auto on = [this](auto signal, auto handler) {
            QObject::connect(model.get(), signal, handler);
        };
        const auto line = [this](auto signal, auto form, auto field) {
            QObject::connect(model.get(), signal,
                             [this, form, field] { add(form((model.get()->*field)())); });
        };
        using Model = AgentModel;
        on(&Model::listening, [this](auto number) { add(headlessLine::listening(number)); });
        line(&Model::statusChanged, headlessLine::status, &Model::status);
        line(&Model::pairingCodeChanged, headlessLine::pairingCode, &Model::pairingCode);
        line(&Model::pairingRequestChanged, headlessLine::pairingRequest, &Model::pairingRequest);
        line(&Model::relayOnlineChanged, headlessLine::relay, &Model::relayOnline);
        line(&Model::devicesChanged, headlessLine::devices, &Model::devices);
        on(&Model::unlockReported,
           [this](auto& name, auto& until) { add(headlessLine::unlock(name, until)); });
        on(&Model::clipboardArrived, [this](auto& text) { add(headlessLine::clipboard(text)); });
        on(&Model::newlyPaired, [this](auto& device) { newlyPaired.push_back(device.name); });
        mainQueue.post([this] { model->start(); });
        time.runPending();
    }

    TestPhone phone(Identity identity = {PrivateKey::generate()},
                    const std::string& from = "192.0.2.1") {
        return TestPhone(time, port->connect(from), std::move(identity));
    }
    // A phone that was paired here before.
    Identity pairedIdentity() {
        const Identity identity{PrivateKey::generate()};
        auto keys = defaults.dataDictionary("trustedKeys").value_or(std::map<std::string, Bytes>());
        keys[identity.fingerprint()] = identity.publicKey();
        defaults.set("trustedKeys", keys);
        return identity;
    }
    TestPhone admittedPhone() { return admittedPhone(pairedIdentity()); }
    TestPhone admittedPhone(const Identity& identity) {
        TestPhone known = phone(identity);
        known.shakeHands();
        known.send({known.hello()});
        EXPECT_EQ(welcomes(known.frames()), 1);
        return known;
    }
    static int welcomes(const std::vector<Frame>& frames) {
        int count = 0;
        for (const Frame& frame : frames) {
            if (frame.kind == FrameKind::control &&
                Framing::decodeControl(frame.payload).as<Welcome>())
                ++count;
        }
        return count;
    }

    // Does something on the main queue, as a user would, and lets it take effect.
    void act(std::function<void(AgentModel&)> action) {
        mainQueue.post([this, action] { action(*model); });
        time.runPending();
    }
    void add(std::string line) { news.push_back(std::move(line)); }
    std::vector<std::string> takeNews() { return std::exchange(news, {}); }
    std::string statusLine() const { return headlessLine::status(model->status()); }

    VirtualTime time;
    int rests = 0;  // of the model
    FakeDefaults defaults;
    MemorySecretStore secrets;
    FakePermissions permissions;
    FakePower power;
    FakeNotifier notifier;
    FakeHostInfo host;
    std::shared_ptr<FakeListener::Port> port = std::make_shared<FakeListener::Port>();
    std::shared_ptr<FakeCompression> compression = std::make_shared<FakeCompression>();
    std::optional<std::vector<ScreenSource::DisplayDescription>> displays;
    AgentCore::Options options;
    FakeEventPoster poster;
    FakeFileSystem files;
    FakeWorkspace workspace;
    FakeTextFocus textFocus;
    SerialQueue mainQueue, captureQueue, audioQueue, filesQueue, queue;
    FakePasteboard pasteboard{mainQueue};
    FakeRelay relay{time, queue};
    std::shared_ptr<FakeScreen> screen;           // once started
    FakeServiceAdvertiser* advertised = nullptr;  // likewise; lives as long as the core
    std::shared_ptr<AgentCore> core;
    std::shared_ptr<AgentModel> model;
    std::vector<std::string> news;  // headless lines
    std::vector<std::string> newlyPaired;
};

inline const char* const waitingLine = R"({"status":{"waiting":{}}})";

}  // namespace orvel
