#include "OrvelAgent/App/Panel/AgentWindows.h"

#include <QCursor>
#include <QTimer>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/App/Panel/AboutWindow.h"
#include "OrvelAgent/App/Panel/AgentPanel.h"
#include "OrvelAgent/App/Panel/PairingWindow.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/PhoneName.h"

namespace orvel {

namespace {

struct TrayLook {
    TrayIcon::State state;
    QString tip;
};

struct TrayLookOf {
    TrayLook operator()(const AgentCore::Status::Starting&) const {
        return {TrayIcon::State::starting, texts::starting};
    }
    TrayLook operator()(const AgentCore::Status::Waiting&) const {
        return {TrayIcon::State::waiting, texts::waiting};
    }
    TrayLook operator()(const AgentCore::Status::Connected& status) const {
        return {TrayIcon::State::connected, QString::fromStdString(phoneNameInText(status.name))};
    }
    TrayLook operator()(const AgentCore::Status::Failed& status) const {
        return {TrayIcon::State::failed, texts::failed + QString::fromStdString(status.message)};
    }
};

}  // namespace

AgentWindows::AgentWindows(Parts windowParts) : parts(std::move(windowParts)) {
    connect(&tray, &TrayIcon::clicked, this, &AgentWindows::togglePanel);
    connect(&tray, &TrayIcon::showWanted, this, &AgentWindows::showPanel);
    connect(&tray, &TrayIcon::quitWanted, this, &AgentWindows::quitWanted);
}

AgentWindows::~AgentWindows() = default;

void AgentWindows::start() {
    connect(&parts.model, &AgentModel::statusChanged, this, &AgentWindows::showStatus);
    connect(&parts.model, &AgentModel::pairingCodeChanged, this, &AgentWindows::showPairing);
    connect(&parts.model, &AgentModel::pairingRequestChanged, this, &AgentWindows::showPairing);
    showStatus();
    showPairing();
    if (tray.isInTray() || parts.startedByDesktop) return;
    QTimer::singleShot(trayPatience, this, [this] {
        if (!tray.isInTray()) showPanel();
    });
}

AgentPanel& AgentWindows::panel() {
    if (!openedPanel) {
        openedPanel = std::make_unique<AgentPanel>(parts.model, parts.login);
        if (parts.connectUpdates) parts.connectUpdates(openedPanel->updates());
        connect(openedPanel.get(), &AgentPanel::aboutWanted, this, &AgentWindows::showAbout);
        connect(openedPanel.get(), &AgentPanel::quitWanted, this, &AgentWindows::quitWanted);
    }
    return *openedPanel;
}

void AgentWindows::showPanel() {
    const QRect place = tray.place();
    if (place.isValid()) {
        panel().openAt(place);
    } else {
        panel().openAsWindow();
    }
}

void AgentWindows::togglePanel() {
    if (openedPanel && openedPanel->isVisible() && !openedPanel->isWindowLikeOthers()) {
        return openedPanel->hide();
    }
    QRect place = tray.place();
    if (!place.isValid()) {
        // Some trays keep to themselves where the icon is; the pointer is on it now.
        place = QRect(0, 0, 32, 32);
        place.moveCenter(QCursor::pos());
    }
    panel().openAt(place);
}

void AgentWindows::showStatus() {
    const TrayLook look = std::visit(TrayLookOf(), parts.model.status().value);
    tray.show(look.state, texts::program + QStringLiteral(": ") + look.tip);
}

void AgentWindows::showPairing() {
    const auto& code = parts.model.pairingCode();
    const auto& request = parts.model.pairingRequest();
    if (!code && !request) {
        // One of its buttons may be speaking.
        if (pairing) pairing->hide();
        if (auto* ended = pairing.release()) ended->deleteLater();
        return;
    }
    if (!pairing) {
        pairing = std::make_unique<PairingWindow>();
        connect(pairing.get(), &PairingWindow::rejected, this,
                [this] { parts.model.rejectPairing(); });
        connect(pairing.get(), &PairingWindow::allowed, this, [this] {
            if (const auto& waiting = parts.model.pairingRequest()) {
                parts.model.allowPairing(std::string(waiting->deviceID));
            }
        });
    }
    std::optional<QString> shownCode, name;
    if (code) shownCode = QString::fromStdString(*code);
    if (request) name = QString::fromStdString(phoneNameInText(request->name));
    pairing->display(shownCode, name);
}

void AgentWindows::showAbout() {
    about = std::make_unique<AboutWindow>(parts.version, parts.webHost);
    about->show();
    about->raise();
    about->activateWindow();
}

}  // namespace orvel
