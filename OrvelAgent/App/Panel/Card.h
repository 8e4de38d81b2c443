#pragma once

#include <QVBoxLayout>
#include <QWidget>

class QHBoxLayout;

namespace orvel {

// A group of the panel: a rounded field with one thing below the other.
class Card : public QWidget {
    Q_OBJECT

public:
    explicit Card(QWidget* parent = nullptr);
    // A line of things side by side, below what is there.
    QHBoxLayout* addRow();
    // The name of the group, with its symbol.
    QHBoxLayout* addHeading(const QString& symbol, const QString& text);
    QVBoxLayout* rows() const { return column; }

private:
    void paintEvent(QPaintEvent* event) override;

    QVBoxLayout* column;
};

}  // namespace orvel
