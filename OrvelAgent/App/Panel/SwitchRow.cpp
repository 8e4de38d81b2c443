#include "OrvelAgent/App/Panel/SwitchRow.h"

#include <QApplication>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QSignalBlocker>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTheme.h"

namespace orvel {

namespace {

constexpr int trackWidth = 34, trackHeight = 20, gap = 12, edge = 4;

QFont titleFont() {
    return theme::font(theme::Letters::body, QApplication::font());
}
QFont meaningFont() {
    return theme::font(theme::Letters::caption, QApplication::font());
}

}  // namespace

SwitchRow::SwitchRow(const QString& title, const QString& rowMeaning, QWidget* parent)
    : QCheckBox(title, parent), meaning(rowMeaning) {
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleDescription(meaning);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void SwitchRow::show(bool on) {
    const QSignalBlocker quiet(this);
    setChecked(on);
}

int SwitchRow::meaningHeight(int width) const {
    if (meaning.isEmpty()) return 0;
    const QRect room(0, 0, width - trackWidth - gap, 1000);
    return QFontMetrics(meaningFont()).boundingRect(room, Qt::TextWordWrap, meaning).height() + 1;
}

int SwitchRow::heightForWidth(int width) const {
    const int text = QFontMetrics(titleFont()).height() + meaningHeight(width);
    return std::max(text, trackHeight) + 2 * edge;
}

QSize SwitchRow::sizeHint() const {
    return {theme::panelWidth - 2 * (theme::outerMargin + theme::cardPadding),
            heightForWidth(theme::panelWidth - 2 * (theme::outerMargin + theme::cardPadding))};
}

QSize SwitchRow::minimumSizeHint() const {
    return {trackWidth + gap + 80, trackHeight + 2 * edge};
}

bool SwitchRow::hitButton(const QPoint& position) const {
    return rect().contains(position);
}

void SwitchRow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled()) painter.setOpacity(0.5);
    const auto tone = [this](theme::Tone each) { return theme::colour(palette(), each); };
    const int titleHeight = QFontMetrics(titleFont()).height();
    const int below = meaningHeight(width());
    const int top = (height() - titleHeight - below) / 2;
    const int textWidth = width() - trackWidth - gap;

    painter.setFont(titleFont());
    painter.setPen(tone(theme::Tone::primary));
    painter.drawText(QRect(0, top, textWidth, titleHeight), Qt::AlignVCenter, text());
    if (below > 0) {
        painter.setFont(meaningFont());
        painter.setPen(tone(theme::Tone::secondary));
        painter.drawText(QRect(0, top + titleHeight + 1, textWidth, below), Qt::TextWordWrap,
                         meaning);
    }

    const QRectF track(width() - trackWidth, (height() - trackHeight) / 2.0, trackWidth,
                       trackHeight);
    painter.setPen(Qt::NoPen);
    painter.setBrush(isChecked()    ? tone(theme::Tone::accent)
                     : underMouse() ? theme::controlFillPressed(palette())
                                    : theme::controlFillHovered(palette()));
    painter.drawRoundedRect(track, trackHeight / 2.0, trackHeight / 2.0);
    const qreal knob = trackHeight - 4;
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRectF(isChecked() ? track.right() - 2 - knob : track.left() + 2,
                               track.top() + 2, knob, knob));
    if (hasFocus() && showsFocus) {
        paintFocusRing(painter, track.adjusted(-3, -3, 3, 3) & QRectF(rect()),
                       trackHeight / 2.0 + 1, palette());
    }
}

void SwitchRow::focusInEvent(QFocusEvent* event) {
    if (event->reason() != Qt::ActiveWindowFocusReason) {
        showsFocus = isKeyboardFocus(event->reason());
    }
    QCheckBox::focusInEvent(event);
}

void SwitchRow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) return click();
    QCheckBox::keyPressEvent(event);
}

}  // namespace orvel
