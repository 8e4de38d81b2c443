#pragma once

#include "OrvelAgent/App/Panel/Card.h"
#include "OrvelAgent/App/Panel/DeviceRow.h"

namespace orvel {

class Confirmation;
class PanelButton;
class TextLabel;

// The phones that may connect, and how one becomes one of them. Removing asks first, one question
// at a time.
class DevicesSection : public Card {
    Q_OBJECT

public:
    explicit DevicesSection(QWidget* parent = nullptr);
    void show(const QList<DeviceRow::Phone>& phones);
    bool isAsking() const { return question != nullptr; }
    void stopAsking();

Q_SIGNALS:
    void removalConfirmed(const QString& id);
    void removalOfAllConfirmed();
    void asking(QWidget* question);  // it is shown from now on

private:
    void askAbout(DeviceRow* row);
    void askAboutAll();
    void orderFocus();
    void ask(Confirmation* confirmation, int position);

    PanelButton* removeAll;
    TextLabel* hint;
    QList<DeviceRow*> devices;
    Confirmation* question = nullptr;
    QString questionable;  // the ID of the phone in question; empty: all of them
};

}  // namespace orvel
