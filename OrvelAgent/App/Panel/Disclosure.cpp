#include "OrvelAgent/App/Panel/Disclosure.h"

#include <QApplication>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QPainter>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/Symbol.h"

namespace orvel {

namespace {
// The symbol has as much room as a heading's.
constexpr int chevronSize = 12, symbolRoom = 16, gap = 8, rowHeight = 24;
}  // namespace

Disclosure::Disclosure(const QString& text, QWidget* parent) : QAbstractButton(parent) {
    setText(text);
    setAccessibleName(text);
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setFont(theme::font(theme::Letters::body, QApplication::font()));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

QSize Disclosure::sizeHint() const {
    return {QFontMetrics(font()).horizontalAdvance(text()) + textIndent(), rowHeight};
}

int Disclosure::textIndent() {
    return symbolRoom + gap;
}

void Disclosure::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const auto ink =
        theme::colour(palette(), underMouse() ? theme::Tone::primary : theme::Tone::secondary);
    painter.save();
    painter.translate(symbolRoom / 2.0, QWidget::height() / 2.0);
    if (isChecked()) painter.rotate(90);
    const QRectF area(-chevronSize / 2.0, -chevronSize / 2.0, chevronSize, chevronSize);
    paintSymbol(painter, area, QStringLiteral("chevron.right"), ink);
    painter.restore();
    painter.setPen(theme::colour(palette(), theme::Tone::primary));
    painter.setFont(font());
    painter.drawText(rect().adjusted(textIndent(), 0, 0, 0), Qt::AlignVCenter, text());
    if (hasFocus() && showsFocus) {
        paintFocusRing(painter, rect(), theme::controlRadius - 2, palette());
    }
}

void Disclosure::focusInEvent(QFocusEvent* event) {
    if (event->reason() != Qt::ActiveWindowFocusReason) {
        showsFocus = isKeyboardFocus(event->reason());
    }
    QAbstractButton::focusInEvent(event);
}

void Disclosure::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            return click();
        case Qt::Key_Right:
            return setChecked(true);
        case Qt::Key_Left:
            return setChecked(false);
        default:
            QAbstractButton::keyPressEvent(event);
    }
}

}  // namespace orvel
