#pragma once

#include <QWidget>

namespace orvel {

class PanelButton;
class TextLabel;

// A phone that may connect.
class DeviceRow : public QWidget {
    Q_OBJECT

public:
    struct Phone {
        QString id;
        QString name;      // fit for a line of text
        QString pairedAt;  // a date; empty when not known
        QString lastSeen;  // empty: never
        bool operator==(const Phone&) const = default;
    };

    explicit DeviceRow(QWidget* parent = nullptr);
    void show(const Phone& phone);
    const Phone& phone() const { return shown; }
    void takeFocus();

Q_SIGNALS:
    void removalWanted();

private:
    Phone shown;
    TextLabel* name;
    TextLabel* dates;
    PanelButton* remove;
};

}  // namespace orvel
