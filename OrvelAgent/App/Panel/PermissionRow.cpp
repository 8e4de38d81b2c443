#include "OrvelAgent/App/Panel/PermissionRow.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

PermissionRow::PermissionRow(const QString& name, const QString& purpose, QWidget* parent)
    : QWidget(parent) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 2, 0, 2);
    row->setSpacing(10);
    symbol = new SymbolView(QStringLiteral("circle"), theme::Tone::secondary, 20);
    auto* lines = new QVBoxLayout;
    lines->setSpacing(0);
    lines->addWidget(new TextLabel(name, theme::Letters::body, theme::Tone::primary));
    lines->addWidget(new TextLabel(purpose, theme::Letters::caption, theme::Tone::secondary));
    button = new PanelButton(texts::allow, PanelButton::Look::prominent);
    row->addWidget(symbol);
    row->addLayout(lines, 1);
    row->addWidget(button);
    // Two buttons have the same caption.
    button->setAccessibleName(texts::allow + QStringLiteral(": ") + name);
    button->setAccessibleDescription(purpose);
    setAccessibleName(name);
    connect(button, &PanelButton::clicked, this, &PermissionRow::wanted);
}

void PermissionRow::show(bool granted) {
    symbol->show(granted ? QStringLiteral("checkmark.circle.fill") : QStringLiteral("circle"),
                 granted ? theme::Tone::good : theme::Tone::secondary);
    button->setVisible(!granted);
    setAccessibleDescription(granted ? texts::granted : texts::missing);
}

}  // namespace orvel
