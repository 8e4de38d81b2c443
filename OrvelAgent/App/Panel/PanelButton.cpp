#include "OrvelAgent/App/Panel/PanelButton.h"

#include <QApplication>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QPainter>

#include "OrvelAgent/App/Panel/Symbol.h"

namespace orvel {

namespace {
constexpr int sideRoom = 12, linkSideRoom = 4, verticalRoom = 5, symbolButtonSize = 28;
}

bool isKeyboardFocus(Qt::FocusReason reason) {
    return reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason ||
           reason == Qt::ShortcutFocusReason || reason == Qt::OtherFocusReason;
}

void paintFocusRing(QPainter& painter, const QRectF& area, qreal radius, const QPalette& palette) {
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(theme::colour(palette, theme::Tone::accent), 2));
    painter.drawRoundedRect(area.adjusted(1, 1, -1, -1), radius, radius);
}

PanelButton::PanelButton(const QString& text, Look buttonLook, QWidget* parent)
    : QPushButton(text, parent), look(buttonLook) {
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setFont(theme::font(look == Look::link ? theme::Letters::body : theme::Letters::strong,
                        QApplication::font()));
    setCursor(look == Look::link ? Qt::PointingHandCursor : Qt::ArrowCursor);
    setAccessibleName(text);
    if (look == Look::symbol) setToolTip(text);
}

void PanelButton::setSymbol(const QString& name, theme::Tone tone) {
    symbol = name;
    symbolTone = tone;
    update();
}

QSize PanelButton::sizeHint() const {
    if (look == Look::symbol) return {symbolButtonSize, symbolButtonSize};
    const QFontMetrics metrics(font());
    const int side = look == Look::link ? linkSideRoom : sideRoom;
    return {metrics.horizontalAdvance(text()) + 2 * side, metrics.height() + 2 * verticalRoom};
}

void PanelButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = rect();
    const auto tone = [this](theme::Tone each) { return theme::colour(palette(), each); };
    QColor ink = tone(theme::Tone::primary), fill = Qt::transparent;
    const auto quietFill = [this] {
        return isDown()       ? theme::controlFillPressed(palette())
               : underMouse() ? theme::controlFillHovered(palette())
                              : theme::controlFill(palette());
    };
    switch (look) {
        case Look::plain:
            fill = quietFill();
            break;
        case Look::prominent:
            fill = tone(theme::Tone::accent);
            ink = tone(theme::Tone::onFill);
            break;
        case Look::destructive:
            fill = tone(theme::Tone::bad);
            ink = tone(theme::Tone::onFill);
            break;
        case Look::link:
            ink = tone(theme::Tone::accent);
            break;
        case Look::symbol:
            ink = tone(symbolTone);
            if (isDown() || underMouse()) fill = quietFill();
            break;
    }
    if (look == Look::prominent || look == Look::destructive) {
        if (isDown())
            fill = fill.darker(120);
        else if (underMouse())
            fill = fill.lighter(108);
    }
    if (!isEnabled()) {
        ink = tone(theme::Tone::secondary);
        if (fill.alpha() != 0) fill = theme::controlFill(palette());
        painter.setOpacity(0.6);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(area, theme::controlRadius, theme::controlRadius);
    if (look == Look::symbol) {
        const qreal inset = (symbolButtonSize - theme::symbolSize) / 2.0;
        paintSymbol(painter, area.adjusted(inset, inset, -inset, -inset), symbol, ink);
    } else {
        painter.setPen(ink);
        painter.setFont(font());
        painter.drawText(area, Qt::AlignCenter | Qt::TextSingleLine, text());
    }
    if (hasFocus() && showsFocus) {
        paintFocusRing(painter, area, theme::controlRadius, palette());
    }
}

void PanelButton::focusInEvent(QFocusEvent* event) {
    // Coming back to the window does not change how the focus came here.
    if (event->reason() != Qt::ActiveWindowFocusReason) {
        showsFocus = isKeyboardFocus(event->reason());
    }
    QPushButton::focusInEvent(event);
}

void PanelButton::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) return click();
    QPushButton::keyPressEvent(event);
}

void PanelButton::changeEvent(QEvent* event) {
    QPushButton::changeEvent(event);
    if (event->type() == QEvent::EnabledChange) update();
}

void PanelButton::enterEvent(QEnterEvent*) {
    update();
}
void PanelButton::leaveEvent(QEvent*) {
    update();
}

}  // namespace orvel
