#include "OrvelAgent/App/Panel/SettingsSection.h"

#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/SwitchRow.h"

namespace orvel {

SettingsSection::SettingsSection(QWidget* parent) : Card(parent) {
    addHeading(QStringLiteral("gearshape"), texts::settings);
    keepAwake = new SwitchRow(texts::keepAwake);
    startAtLogin = new SwitchRow(texts::startAtLogin, texts::startAtLoginMeans);
    rows()->addWidget(keepAwake);
    rows()->addWidget(startAtLogin);
    connect(keepAwake, &SwitchRow::toggled, this, &SettingsSection::keepAwakeChosen);
    connect(startAtLogin, &SwitchRow::toggled, this, &SettingsSection::startAtLoginChosen);
}

void SettingsSection::showKeepAwake(bool on) {
    keepAwake->show(on);
}

void SettingsSection::showStartAtLogin(std::optional<bool> on) {
    startAtLogin->setVisible(on.has_value());
    if (on) startAtLogin->show(*on);
}

}  // namespace orvel
