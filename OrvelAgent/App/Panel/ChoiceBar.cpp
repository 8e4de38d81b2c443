#include "OrvelAgent/App/Panel/ChoiceBar.h"

#include <QApplication>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QPainter>
#include <QSignalBlocker>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTheme.h"

namespace orvel {

namespace {
constexpr int trackInset = 2;
}

// For screen readers and the keyboard a radio button like any other.
class ChoiceBar::Segment : public QRadioButton {
public:
    using QRadioButton::QRadioButton;

    QSize sizeHint() const override {
        const QFontMetrics metrics(theme::font(theme::Letters::strong, QApplication::font()));
        return {metrics.horizontalAdvance(text()) + 16, metrics.height() + 10};
    }
    QSize minimumSizeHint() const override { return sizeHint(); }

private:
    bool hitButton(const QPoint& position) const override { return rect().contains(position); }

    void focusInEvent(QFocusEvent* event) override {
        if (event->reason() != Qt::ActiveWindowFocusReason) {
            showsFocus = isKeyboardFocus(event->reason());
        }
        QRadioButton::focusInEvent(event);
    }

    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        const qreal radius = theme::controlRadius - trackInset + 0.5;
        if (isChecked()) {
            painter.setPen(theme::hairline(palette()));
            painter.setBrush(theme::isDark(palette()) ? theme::controlFillPressed(palette())
                                                      : QColor(Qt::white));
            painter.drawRoundedRect(area, radius, radius);
        }
        const bool stands = isChecked() || underMouse();
        painter.setPen(
            theme::colour(palette(), stands ? theme::Tone::primary : theme::Tone::secondary));
        painter.setFont(theme::font(isChecked() ? theme::Letters::strong : theme::Letters::body,
                                    QApplication::font()));
        painter.drawText(rect(), Qt::AlignCenter, text());
        if (hasFocus() && showsFocus) paintFocusRing(painter, rect(), radius, palette());
    }

    bool showsFocus = false;
};

ChoiceBar::ChoiceBar(const QStringList& names, QWidget* parent) : QWidget(parent) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(trackInset, trackInset, trackInset, trackInset);
    layout->setSpacing(0);
    for (const QString& name : names) {
        auto* segment = new Segment(name, this);
        segment->setFocusPolicy(Qt::StrongFocus);
        segment->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        const int index = static_cast<int>(segments.size());
        connect(segment, &QRadioButton::toggled, this, [this, index](bool on) {
            if (on) Q_EMIT chosen(index);
        });
        layout->addWidget(segment, 1);
        segments << segment;
    }
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void ChoiceBar::show(int index) {
    if (segments[index]->isChecked()) return;
    const QSignalBlocker quiet(this);
    segments[index]->setChecked(true);
}

void ChoiceBar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(theme::controlFill(palette()));
    painter.drawRoundedRect(rect(), theme::controlRadius, theme::controlRadius);
}

}  // namespace orvel
