#include "OrvelAgent/App/Panel/AgentPanel.h"

#include <QCursor>
#include <QDateTime>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLocale>
#include <QPainter>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/App/LoginItem.h"
#include "OrvelAgent/App/Panel/CodeSection.h"
#include "OrvelAgent/App/Panel/DevicesSection.h"
#include "OrvelAgent/App/Panel/InternetSection.h"
#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelPlace.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/PermissionsSection.h"
#include "OrvelAgent/App/Panel/SettingsSection.h"
#include "OrvelAgent/App/Panel/StatusSection.h"
#include "OrvelAgent/App/Panel/Symbol.h"
#include "OrvelAgent/App/Panel/UpdatesSection.h"
#include "OrvelAgent/App/PhoneName.h"
#include "OrvelAgent/App/ShortTime.h"

namespace orvel {

namespace {

constexpr char slimScrollBar[] =
    "QScrollBar:vertical { background: transparent; width: 8px; }"
    "QScrollBar::handle:vertical { background: palette(mid); border-radius: 3px; margin: 1px;"
    "                              min-height: 32px; }"
    "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
    "QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }";

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

QDateTime dateTime(WallTime time) {
    using std::chrono::milliseconds;
    return QDateTime::fromMSecsSinceEpoch(
        std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count());
}

QString dateText(WallTime time) {
    return QLocale::system().toString(dateTime(time).date(), QLocale::ShortFormat);
}

DeviceRow::Phone phoneOf(const PairedDevice& device) {
    DeviceRow::Phone phone;
    phone.id = text(device.id);
    phone.name = text(phoneNameInText(device.name));
    if (device.pairedAt) phone.pairedAt = dateText(*device.pairedAt);
    if (device.lastSeen) {
        phone.lastSeen = dateText(*device.lastSeen) + u' ' + text(shortTime(*device.lastSeen));
    }
    return phone;
}

InternetSection::Mode shownMode(RemoteAccess mode) {
    switch (mode) {
        case RemoteAccess::on:
            return InternetSection::Mode::on;
        case RemoteAccess::standby:
            return InternetSection::Mode::standby;
        case RemoteAccess::off:
            break;
    }
    return InternetSection::Mode::off;
}

RemoteAccess chosenMode(InternetSection::Mode mode) {
    switch (mode) {
        case InternetSection::Mode::on:
            return RemoteAccess::on;
        case InternetSection::Mode::standby:
            return RemoteAccess::standby;
        case InternetSection::Mode::off:
            break;
    }
    return RemoteAccess::off;
}

}  // namespace

AgentPanel::AgentPanel(AgentModel& agentModel, LoginItem* loginItem)
    : model(agentModel), login(loginItem) {
    setWindowTitle(texts::program);
    setWindowIcon(programIcon());
    setAccessibleName(texts::program);
    build();
    connectModel();
    connectLogin();
}

void AgentPanel::build() {
    content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(theme::outerMargin, theme::outerMargin, theme::outerMargin,
                               theme::outerMargin - 2);
    column->setSpacing(theme::cardSpacing);
    column->addWidget(status = new StatusSection);
    column->addWidget(code = new CodeSection);
    column->addWidget(permissions = new PermissionsSection);
    column->addWidget(internet = new InternetSection);
    column->addWidget(devices = new DevicesSection);
    column->addWidget(settings = new SettingsSection);
    column->addWidget(updatesSection = new UpdatesSection);
    updatesSection->hide();

    auto* footer = new QHBoxLayout;
    auto* about = new PanelButton(texts::about, PanelButton::Look::link);
    auto* quit = new PanelButton(texts::quit, PanelButton::Look::link);
    footer->addWidget(about);
    footer->addStretch();
    footer->addWidget(quit);
    column->addLayout(footer);
    column->addStretch(1);
    connect(about, &PanelButton::clicked, this, &AgentPanel::aboutWanted);
    connect(quit, &PanelButton::clicked, this, &AgentPanel::quitWanted);

    scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFocusPolicy(Qt::NoFocus);
    scroll->verticalScrollBar()->setStyleSheet(QString::fromUtf8(slimScrollBar));
    scroll->setWidget(content);
    content->setAutoFillBackground(false);
    scroll->viewport()->setAutoFillBackground(false);
    content->installEventFilter(this);

    auto* whole = new QVBoxLayout(this);
    whole->setContentsMargins(1, 1, 1, 1);
    whole->addWidget(scroll);
    connect(devices, &DevicesSection::asking, this, [this](QWidget* question) {
        fit();
        scroll->ensureWidgetVisible(question);
    });
}

void AgentPanel::connectModel() {
    const auto follow = [this](auto signal, auto show) {
        connect(&model, signal, this, show);
        show();
    };
    follow(&AgentModel::statusChanged, [this] { showStatus(); });
    follow(&AgentModel::pairingCodeChanged,
           [this] { code->show(text(model.pairingCode().value_or(std::string()))); });
    const auto showPermissions = [this] {
        permissions->show(model.screenGranted(), model.accessibilityGranted());
        showStatus();
    };
    follow(&AgentModel::screenGrantedChanged, showPermissions);
    follow(&AgentModel::accessibilityGrantedChanged, showPermissions);
    internet->setVisible(model.relayConfigured);
    follow(&AgentModel::remoteAccessChanged,
           [this] { internet->showMode(shownMode(model.remoteAccess())); });
    follow(&AgentModel::relayOnlineChanged, [this] { internet->showOnline(model.relayOnline()); });
    follow(&AgentModel::unlockedUntilChanged, [this] {
        std::optional<QString> until;
        if (model.unlockedUntil()) until = text(shortTime(*model.unlockedUntil()));
        internet->showUnlocked(until);
    });
    follow(&AgentModel::remoteEventsChanged, [this] {
        QStringList lines;
        for (const std::string& line : model.remoteEvents())
            lines << text(line);
        internet->showHistory(lines);
    });
    follow(&AgentModel::devicesChanged, [this] { showDevices(); });
    follow(&AgentModel::keepAwakeChanged, [this] { settings->showKeepAwake(model.keepAwake()); });

    connect(status, &StatusSection::disconnectWanted, this, [this] { model.disconnect(); });
    connect(permissions, &PermissionsSection::screenWanted, this,
            [this] { model.requestScreenRecording(); });
    connect(permissions, &PermissionsSection::accessibilityWanted, this,
            [this] { model.requestAccessibility(); });
    connect(internet, &InternetSection::modeChosen, this,
            [this](auto mode) { model.setRemoteAccess(chosenMode(mode)); });
    connect(devices, &DevicesSection::removalConfirmed, this,
            [this](const QString& id) { model.forget(id.toStdString()); });
    connect(devices, &DevicesSection::removalOfAllConfirmed, this, [this] { model.forgetAll(); });
    connect(settings, &SettingsSection::keepAwakeChosen, this,
            [this](bool on) { model.setKeepAwake(on); });
}

void AgentPanel::connectLogin() {
    if (!login) return settings->showStartAtLogin(std::nullopt);
    const auto show = [this] { settings->showStartAtLogin(login->enabled()); };
    connect(login, &LoginItem::enabledChanged, this, show);
    show();
    connect(settings, &SettingsSection::startAtLoginChosen, login, &LoginItem::setEnabled);
}

void AgentPanel::showStatus() {
    using Kind = StatusSection::Kind;
    const bool isPermitted = model.screenGranted() && model.accessibilityGranted();
    const auto& value = model.status().value;
    const QString here = text(model.macName);
    if (const auto* connected = std::get_if<AgentCore::Status::Connected>(&value)) {
        status->show(Kind::connected, text(phoneNameInText(connected->name)),
                     (connected->internet ? texts::connectedFromAfar : texts::connectedNear));
    } else if (const auto* failed = std::get_if<AgentCore::Status::Failed>(&value)) {
        status->show(Kind::failed, texts::failed + text(failed->message), {});
    } else if (std::holds_alternative<AgentCore::Status::Starting>(value)) {
        status->show(Kind::starting, texts::starting, here);
    } else {
        status->show(isPermitted ? Kind::waiting : Kind::notPermitted, texts::waiting, here);
    }
}

void AgentPanel::showDevices() {
    QList<DeviceRow::Phone> phones;
    for (const PairedDevice& device : model.devices())
        phones << phoneOf(device);
    devices->show(phones);
}

void AgentPanel::openAt(const QRect& iconArea) {
    icon = iconArea;
    isAtIcon = true;
    open(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
}

void AgentPanel::openAsWindow() {
    if (isVisible() && !isAtIcon) {
        setWindowState(windowState() & ~Qt::WindowMinimized);
        raise();
        return activateWindow();
    }
    isAtIcon = false;
    open(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint |
         Qt::WindowMinimizeButtonHint);
}

void AgentPanel::open(Qt::WindowFlags flags) {
    if (windowFlags() != flags) setWindowFlags(flags);
    scroll->verticalScrollBar()->setValue(0);
    setFocus(Qt::OtherFocusReason);  // the first Tab reaches the first control
    if (login) login->refresh();
    fit();
    show();
    raise();
    activateWindow();
}

QRect AgentPanel::freeArea() const {
    const QScreen* place = isAtIcon ? QGuiApplication::screenAt(icon.center()) : QWidget::screen();
    if (!place) place = QGuiApplication::primaryScreen();
    return place->availableGeometry();
}

QSize AgentPanel::sizeHint() const {
    const int wanted = content->layout()->totalHeightForWidth(theme::panelWidth - 2) + 2;
    return {theme::panelWidth, std::min(wanted, panelHeightLimit(freeArea()))};
}

void AgentPanel::fit() {
    content->layout()->activate();
    const QSize size = sizeHint();
    setFixedSize(size);
    if (isAtIcon) move(panelPlace(icon, size, freeArea()));
}

bool AgentPanel::event(QEvent* event) {
    // A click on the icon takes the focus, too, and then closes the panel by itself.
    if (event->type() == QEvent::WindowDeactivate && isAtIcon && !devices->isAsking() &&
        !icon.contains(QCursor::pos())) {
        hide();
    }
    return QWidget::event(event);
}

bool AgentPanel::eventFilter(QObject* watched, QEvent* event) {
    if (watched == content && event->type() == QEvent::LayoutRequest && isVisible()) fit();
    return QWidget::eventFilter(watched, event);
}

void AgentPanel::keyPressEvent(QKeyEvent* event) {
    if (event->key() != Qt::Key_Escape) return QWidget::keyPressEvent(event);
    if (devices->isAsking()) {
        devices->stopAsking();
    } else {
        hide();
    }
}

void AgentPanel::hideEvent(QHideEvent* event) {
    devices->stopAsking();
    QWidget::hideEvent(event);
}

void AgentPanel::paintEvent(QPaintEvent*) {
    if (!isAtIcon) return;
    QPainter painter(this);
    painter.setPen(theme::controlFillPressed(palette()));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

}  // namespace orvel
