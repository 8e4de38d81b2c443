#pragma once

#include <QString>
#include <optional>

#include "OrvelAgent/App/Panel/Card.h"

namespace orvel {

class PanelButton;
class SwitchRow;
class TextLabel;

// New versions of the program; not to be seen before the first show().
class UpdatesSection : public Card {
    Q_OBJECT

public:
    struct State {
        std::optional<QString> availableVersion;
        bool canCheck = false;
        bool automaticChecks = false;
        QString progress;  // one line; empty: nothing is under way
        bool isConfigured = true;
    };

    explicit UpdatesSection(QWidget* parent = nullptr);
    void show(const State& state);

Q_SIGNALS:
    void installWanted();
    void checkWanted();
    void automaticChecksChosen(bool on);

private:
    QWidget* available;
    TextLabel* version;
    TextLabel* progress;
    PanelButton* check;
    SwitchRow* automatic;
};

}  // namespace orvel
