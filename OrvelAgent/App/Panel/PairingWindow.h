#pragma once

#include <QWidget>
#include <optional>

namespace orvel {

class CodeLabel;
class PanelButton;
class TextLabel;

// A new phone in the middle of the screen that has the pointer, above all windows: its code, and
// the way to refuse it. It takes no keyboard focus by itself, so that nobody who is typing answers
// it unawares.
class PairingWindow : public QWidget {
    Q_OBJECT

public:
    PairingWindow();

    // At least one of them: the code that the phone's user is to type, and the name (fit for a
    // line of text) of a phone that waits to be allowed.
    void display(const std::optional<QString>& code, const std::optional<QString>& name);

Q_SIGNALS:
    void rejected();
    void allowed();

private:
    void paintEvent(QPaintEvent* event) override;

    CodeLabel* digits;
    TextLabel* name;
    TextLabel* line;
    PanelButton* allow;
};

}  // namespace orvel
