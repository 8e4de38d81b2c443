#pragma once

#include <QRadioButton>
#include <QWidget>

namespace orvel {

// One of a few, side by side. Tab reaches the chosen one, arrow keys move on.
class ChoiceBar : public QWidget {
    Q_OBJECT

public:
    explicit ChoiceBar(const QStringList& names, QWidget* parent = nullptr);
    void show(int index);  // without a signal

Q_SIGNALS:
    void chosen(int index);  // by the user

private:
    class Segment;
    void paintEvent(QPaintEvent* event) override;
    QList<Segment*> segments;
};

}  // namespace orvel
