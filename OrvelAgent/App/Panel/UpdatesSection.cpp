#include "OrvelAgent/App/Panel/UpdatesSection.h"

#include <QHBoxLayout>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/SwitchRow.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

UpdatesSection::UpdatesSection(QWidget* parent) : Card(parent) {
    available = new QWidget;
    auto* row = new QHBoxLayout(available);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(10);
    version =
        new TextLabel({}, theme::Letters::strong, theme::Tone::primary, TextLabel::Fit::elides);
    auto* install = new PanelButton(texts::install, PanelButton::Look::prominent);
    row->addWidget(
        new SymbolView(QStringLiteral("arrow.down.circle.fill"), theme::Tone::accent, 22));
    row->addWidget(version, 1);
    row->addWidget(install);
    automatic = new SwitchRow(texts::checkAutomatically);
    auto* checkRow = new QHBoxLayout;
    check = new PanelButton(texts::checkForUpdates, PanelButton::Look::plain);
    progress = new TextLabel({}, theme::Letters::caption, theme::Tone::secondary);
    checkRow->addWidget(check);
    checkRow->addStretch();
    rows()->addWidget(available);
    rows()->addWidget(automatic);
    rows()->addLayout(checkRow);
    rows()->addWidget(progress);
    connect(install, &PanelButton::clicked, this, &UpdatesSection::installWanted);
    connect(check, &PanelButton::clicked, this, &UpdatesSection::checkWanted);
    connect(automatic, &SwitchRow::toggled, this, &UpdatesSection::automaticChecksChosen);
}

void UpdatesSection::show(const State& state) {
    setVisible(true);
    available->setVisible(state.availableVersion.has_value());
    if (state.availableVersion) version->setText(texts::newVersion + *state.availableVersion);
    check->setEnabled(state.canCheck);
    automatic->setEnabled(state.isConfigured);
    automatic->show(state.automaticChecks);
    progress->setText(state.progress);
    progress->setVisible(!state.progress.isEmpty());
}

}  // namespace orvel
