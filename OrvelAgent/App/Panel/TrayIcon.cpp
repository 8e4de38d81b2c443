#include "OrvelAgent/App/Panel/TrayIcon.h"

#include <QGuiApplication>
#include <QPainter>

#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/Symbol.h"

namespace orvel {

namespace {

// A menu bar of one colour draws its icons in that; trays have backgrounds of any colour.
bool traysHaveColours() {
    return QGuiApplication::platformName() != QStringLiteral("cocoa");
}

QString symbolOf(TrayIcon::State state) {
    switch (state) {
        case TrayIcon::State::connected:
            return QStringLiteral("MenuIcon.connected");
        case TrayIcon::State::failed:
            return QStringLiteral("MenuIcon.failed");
        default:
            return QStringLiteral("MenuIcon");
    }
}

// White lines are legible on each of them, and each is on light and on dark.
QColor fieldOf(TrayIcon::State state) {
    switch (state) {
        case TrayIcon::State::starting:
            return QColor(0x7A, 0x84, 0x92);
        case TrayIcon::State::waiting:
            return QColor(0x2F, 0x6F, 0xD0);
        case TrayIcon::State::connected:
            return QColor(0x1F, 0x8F, 0x47);
        case TrayIcon::State::failed:
            break;
    }
    return QColor(0xCC, 0x3A, 0x3A);
}

}  // namespace

QIcon TrayIcon::picture(State state, bool hasColours) {
    QIcon result;
    for (const int size : {16, 18, 22, 24, 32, 36, 44, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        QRectF area(0, 0, size, size);
        if (hasColours) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(fieldOf(state));
            painter.drawRoundedRect(area, size * 0.26, size * 0.26);
            area.adjust(size * 0.12, size * 0.12, -size * 0.12, -size * 0.12);
        }
        paintSymbol(painter, area, symbolOf(state), hasColours ? Qt::white : Qt::black);
        painter.end();
        result.addPixmap(pixmap);
    }
    result.setIsMask(!hasColours);
    return result;
}

TrayIcon::TrayIcon() {
    menu.addAction(texts::show, this, &TrayIcon::showWanted);
    menu.addAction(texts::quit, this, &TrayIcon::quitWanted);
    // Where icons have no colours, a click would open a menu instead of the panel.
    if (traysHaveColours()) icon.setContextMenu(&menu);
    connect(&icon, &QSystemTrayIcon::activated, this, [this](auto reason) {
        if (reason == QSystemTrayIcon::Trigger) Q_EMIT clicked();
    });
}

void TrayIcon::show(State state, const QString& tip) {
    icon.setIcon(picture(state, traysHaveColours()));
    icon.setToolTip(tip);
    icon.show();
}

QRect TrayIcon::place() const {
    return isInTray() ? icon.geometry() : QRect();
}

bool TrayIcon::isInTray() const {
    return icon.isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

}  // namespace orvel
