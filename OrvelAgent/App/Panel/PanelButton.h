#pragma once

#include <QPushButton>

#include "OrvelAgent/App/Panel/PanelTheme.h"

namespace orvel {

// A button of the panel. Reached by Tab, pressed by Space and Enter; the ring around it is for the
// keyboard only.
class PanelButton : public QPushButton {
    Q_OBJECT

public:
    enum class Look {
        plain,        // a quiet field
        prominent,    // what is to be done
        destructive,  // what cannot be undone
        link,         // text alone
        symbol        // a symbol alone; the text is for screen readers and the tool tip
    };
    PanelButton(const QString& text, Look look, QWidget* parent = nullptr);

    void setSymbol(const QString& name, theme::Tone tone);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

private:
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

    const Look look;
    QString symbol;
    theme::Tone symbolTone = theme::Tone::secondary;
    bool showsFocus = false;
};

// Whether focus that came this way is to be seen.
bool isKeyboardFocus(Qt::FocusReason reason);

// The ring around a control that has it.
void paintFocusRing(QPainter& painter, const QRectF& area, qreal radius, const QPalette& palette);

}  // namespace orvel
