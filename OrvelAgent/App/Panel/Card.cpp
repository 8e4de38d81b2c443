#include "OrvelAgent/App/Panel/Card.h"

#include <QHBoxLayout>
#include <QPainter>

#include "OrvelAgent/App/Panel/PanelTheme.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

Card::Card(QWidget* parent) : QWidget(parent), column(new QVBoxLayout(this)) {
    column->setContentsMargins(theme::cardPadding, theme::cardPadding - 2, theme::cardPadding,
                               theme::cardPadding - 2);
    column->setSpacing(theme::rowSpacing);
}

QHBoxLayout* Card::addRow() {
    auto* row = new QHBoxLayout;
    row->setSpacing(theme::rowSpacing);
    column->addLayout(row);
    return row;
}

QHBoxLayout* Card::addHeading(const QString& symbol, const QString& text) {
    auto* row = addRow();
    row->addWidget(new SymbolView(symbol, theme::Tone::secondary, 16));
    row->addWidget(new TextLabel(text, theme::Letters::heading, theme::Tone::secondary,
                                 TextLabel::Fit::elides),
                   1);
    setAccessibleName(text);
    return row;
}

void Card::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(theme::hairline(palette()));
    painter.setBrush(theme::cardFill(palette()));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), theme::cardRadius,
                            theme::cardRadius);
}

}  // namespace orvel
