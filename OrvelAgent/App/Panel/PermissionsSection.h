#pragma once

#include "OrvelAgent/App/Panel/Card.h"

namespace orvel {

class PermissionRow;

// What the system has to allow, while it does not allow all of it.
class PermissionsSection : public Card {
    Q_OBJECT

public:
    explicit PermissionsSection(QWidget* parent = nullptr);
    void show(bool screenGranted, bool accessibilityGranted);  // hides itself when both are there

Q_SIGNALS:
    void screenWanted();
    void accessibilityWanted();

private:
    PermissionRow* screen;
    PermissionRow* accessibility;
};

}  // namespace orvel
