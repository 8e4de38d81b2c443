#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QStyleFactory>
#include <QTest>
#include <memory>

#include "OrvelAgent/App/Panel/AgentPanel.h"
#include "OrvelAgent/App/Panel/PanelApplication.h"
#include "OrvelAgent/Platform/WindowSystem.h"
#include "Tests/Agent/FakeAgent.h"
#include "Tests/Panel/TurkishLocale.h"
#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/XServer.h"

namespace orvel {

// An X server with nothing on it, and the toolkit there, in Turkish and in UTC.
class PanelDesk {
public:
    PanelDesk() { EXPECT_TRUE(prepareWindowSystem()); }

    XServer server{XServer::Options{.width = 1280, .height = 1000}};
    ScopedEnvironment display{"DISPLAY", server.display()};
    ScopedEnvironment noBus{"DBUS_SESSION_BUS_ADDRESS", "disabled:"};
    static const TurkishLocale& turkish() {
        static const TurkishLocale made;  // takes its time
        return made;
    }
    ScopedEnvironment locales{"LOCPATH", turkish().path()};
    ScopedEnvironment language{"LC_ALL", TurkishLocale::name};
    ScopedEnvironment zone{"TZ", "UTC"};
};

// Each suite has one for all of its tests: the toolkit bears only one after the other.
class PanelTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        desk = std::make_unique<PanelDesk>();
        application = std::make_unique<PanelApplication>();
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    }
    static void TearDownTestSuite() {
        application.reset();
        desk.reset();
    }

    // What the core reports, as if it happened.
    void report(const std::function<void(AgentCore&)>& news) {
        agent.mainQueue.post([this, news] { news(*agent.core); });
        agent.time.runPending();
    }
    void reportDevices(const std::vector<PairedDevice>& devices) {
        report([&](AgentCore& core) { core.onDevices(devices); });
    }
    void reportStatus(AgentCore::Status status) {
        report([&](AgentCore& core) { core.onStatus(status); });
    }
    void reportCode(const std::optional<std::string>& code) {
        report([&](AgentCore& core) { core.onPairingCode(code); });
    }

    // The visible one of these children whose text or accessible name begins so.
    template <class Widget>
    static Widget* find(const QWidget& parent, const QString& beginning) {
        for (auto* each : parent.findChildren<Widget*>()) {
            if (!each->isVisible()) continue;
            if (each->text().startsWith(beginning) || each->accessibleName().startsWith(beginning))
                return each;
        }
        return nullptr;
    }

    static std::unique_ptr<PanelDesk> desk;
    static std::unique_ptr<PanelApplication> application;
    FakeAgent agent;
};

}  // namespace orvel
