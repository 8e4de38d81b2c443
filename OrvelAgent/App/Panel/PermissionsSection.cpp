#include "OrvelAgent/App/Panel/PermissionsSection.h"

#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/PermissionRow.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

PermissionsSection::PermissionsSection(QWidget* parent) : Card(parent) {
    rows()->addWidget(
        new TextLabel(texts::permissionsNeeded, theme::Letters::strong, theme::Tone::primary));
    screen = new PermissionRow(texts::screenRecording, texts::screenRecordingWhy);
    accessibility = new PermissionRow(texts::accessibility, texts::accessibilityWhy);
    rows()->addWidget(screen);
    rows()->addWidget(accessibility);
    connect(screen, &PermissionRow::wanted, this, &PermissionsSection::screenWanted);
    connect(accessibility, &PermissionRow::wanted, this, &PermissionsSection::accessibilityWanted);
    setAccessibleName(texts::permissionsNeeded);
}

void PermissionsSection::show(bool screenGranted, bool accessibilityGranted) {
    screen->show(screenGranted);
    accessibility->show(accessibilityGranted);
    setVisible(!screenGranted || !accessibilityGranted);
}

}  // namespace orvel
