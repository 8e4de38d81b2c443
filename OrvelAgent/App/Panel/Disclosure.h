#pragma once

#include <QAbstractButton>

namespace orvel {

// Shows and hides what lies below it: checked is open.
class Disclosure : public QAbstractButton {
    Q_OBJECT

public:
    explicit Disclosure(const QString& text, QWidget* parent = nullptr);
    QSize sizeHint() const override;
    // Where its text begins, for what it shows.
    static int textIndent();

private:
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

    bool showsFocus = false;
};

}  // namespace orvel
