#include "OrvelAgent/App/Panel/Confirmation.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPainter>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

Confirmation::Confirmation(const QString& question, const QString& meaning, const QString& doIt,
                           QWidget* parent)
    : QWidget(parent) {
    setAccessibleName(question);
    setAccessibleDescription(meaning);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 10, 10, 10);
    column->setSpacing(6);
    auto* title = new TextLabel(question, theme::Letters::strong, theme::Tone::primary);
    title->setMaxLines(3);
    column->addWidget(title);
    if (!meaning.isEmpty()) {
        column->addWidget(new TextLabel(meaning, theme::Letters::caption, theme::Tone::secondary));
    }
    auto* answers = new QHBoxLayout;
    answers->setContentsMargins(0, 4, 0, 0);
    answers->setSpacing(theme::rowSpacing);
    answers->addStretch();
    keep = new PanelButton(texts::cancel, PanelButton::Look::plain);
    auto* remove = new PanelButton(doIt, PanelButton::Look::destructive);
    answers->addWidget(keep);
    answers->addWidget(remove);
    column->addLayout(answers);
    connect(keep, &PanelButton::clicked, this, &Confirmation::cancelled);
    connect(remove, &PanelButton::clicked, this, &Confirmation::confirmed);
}

void Confirmation::takeFocus() {
    keep->setFocus(Qt::OtherFocusReason);
    QAccessibleEvent announced(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&announced);
}

void Confirmation::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        Q_EMIT cancelled();
    } else {
        QWidget::keyPressEvent(event);
    }
}

void Confirmation::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor field = theme::colour(palette(), theme::Tone::bad);
    QColor edge = field;
    field.setAlphaF(theme::isDark(palette()) ? 0.14f : 0.06f);
    edge.setAlphaF(0.35f);
    painter.setPen(edge);
    painter.setBrush(field);
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), theme::controlRadius,
                            theme::controlRadius);
}

}  // namespace orvel
