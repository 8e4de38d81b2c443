#pragma once

#include <QWidget>

#include "OrvelAgent/App/Panel/PanelTheme.h"

namespace orvel {

// A symbol of a fixed size beside the text that says the same.
class SymbolView : public QWidget {
    Q_OBJECT

public:
    explicit SymbolView(const QString& name, theme::Tone tone = theme::Tone::primary,
                        int size = theme::symbolSize, QWidget* parent = nullptr);
    void show(const QString& name, theme::Tone tone);
    // On a round field of its colour; the symbol itself is then half as large.
    void setFilled(bool filled);
    const QString& name() const { return symbol; }

private:
    void paintEvent(QPaintEvent* event) override;

    QString symbol;
    theme::Tone tone;
    bool isFilled = false;
};

}  // namespace orvel
