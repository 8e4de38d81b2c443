#pragma once

#include <optional>

#include "OrvelAgent/App/Panel/Card.h"

namespace orvel {

class SwitchRow;

// What the computer does so that phones reach it.
class SettingsSection : public Card {
    Q_OBJECT

public:
    explicit SettingsSection(QWidget* parent = nullptr);
    void showKeepAwake(bool on);
    // nullopt: this agent is none that could be started at login.
    void showStartAtLogin(std::optional<bool> on);

Q_SIGNALS:
    void keepAwakeChosen(bool on);
    void startAtLoginChosen(bool on);

private:
    SwitchRow* keepAwake;
    SwitchRow* startAtLogin;
};

}  // namespace orvel
