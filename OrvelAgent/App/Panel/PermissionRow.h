#pragma once

#include <QWidget>

namespace orvel {

class PanelButton;
class SymbolView;

// One permission: what it is for, whether it is there, and a button that asks for it.
class PermissionRow : public QWidget {
    Q_OBJECT

public:
    PermissionRow(const QString& name, const QString& purpose, QWidget* parent = nullptr);
    void show(bool granted);

Q_SIGNALS:
    void wanted();

private:
    SymbolView* symbol;
    PanelButton* button;
};

}  // namespace orvel
