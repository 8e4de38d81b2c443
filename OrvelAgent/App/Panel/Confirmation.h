#pragma once

#include <QWidget>

namespace orvel {

class PanelButton;

// A question in place of what it is about. The safe answer has the focus; Escape is that answer.
class Confirmation : public QWidget {
    Q_OBJECT

public:
    // `meaning` may be empty; `doIt` is the caption of what cannot be undone.
    Confirmation(const QString& question, const QString& meaning, const QString& doIt,
                 QWidget* parent = nullptr);
    void takeFocus();

Q_SIGNALS:
    void confirmed();
    void cancelled();

private:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

    PanelButton* keep;
};

}  // namespace orvel
