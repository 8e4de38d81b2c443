#pragma once

#include <optional>

#include "OrvelAgent/App/Panel/Card.h"

namespace orvel {

class ChoiceBar;
class Disclosure;
class TextLabel;

// The way in from the internet.
class InternetSection : public Card {
    Q_OBJECT

public:
    enum class Mode { on, standby, off };

    explicit InternetSection(QWidget* parent = nullptr);
    void showMode(Mode mode);
    void showOnline(bool online);
    void showUnlocked(const std::optional<QString>& until);  // a time of day
    void showHistory(const QStringList& lines);              // newest first

    Disclosure* historyDisclosure() const { return disclosure; }

Q_SIGNALS:
    void modeChosen(orvel::InternetSection::Mode mode);

private:
    void updateTexts();

    ChoiceBar* modes;
    TextLabel* meaning;
    QWidget* connecting;
    QWidget* unlocked;
    TextLabel* unlockedText;
    Disclosure* disclosure;
    QWidget* history;  // a label for each line
    Mode mode = Mode::off;
    bool isOnline = false;
};

}  // namespace orvel
