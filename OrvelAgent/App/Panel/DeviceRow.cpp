#include "OrvelAgent/App/Panel/DeviceRow.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

DeviceRow::DeviceRow(QWidget* parent) : QWidget(parent) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 2, 0, 2);
    row->setSpacing(4);  // the symbol is narrow
    name = new TextLabel({}, theme::Letters::body, theme::Tone::primary, TextLabel::Fit::elides);
    dates = new TextLabel({}, theme::Letters::caption, theme::Tone::secondary);
    remove = new PanelButton(texts::remove, PanelButton::Look::symbol);
    remove->setSymbol(QStringLiteral("minus.circle"), theme::Tone::secondary);
    auto* lines = new QVBoxLayout;
    lines->setSpacing(1);
    lines->addWidget(name);
    lines->addWidget(dates);
    row->addWidget(new SymbolView(QStringLiteral("iphone.gen3"), theme::Tone::secondary, 20));
    row->addLayout(lines, 1);
    row->addSpacing(theme::rowSpacing);
    row->addWidget(remove);
    connect(remove, &PanelButton::clicked, this, &DeviceRow::removalWanted);
}

void DeviceRow::show(const Phone& phone) {
    shown = phone;
    name->setText(phone.name);
    QStringList known;
    if (!phone.pairedAt.isEmpty()) known << texts::pairedAt + phone.pairedAt;
    known << (phone.lastSeen.isEmpty() ? QString(texts::neverSeen)
                                       : texts::lastSeen + phone.lastSeen);
    dates->setText(known.join(u'\n'));
    remove->setAccessibleName(texts::removeOne + phone.name);
    setAccessibleName(phone.name);
    setAccessibleDescription(known.join(QStringLiteral(", ")));
}

void DeviceRow::takeFocus() {
    remove->setFocus(Qt::OtherFocusReason);
}

}  // namespace orvel
