#pragma once

#include <QLabel>

#include "OrvelAgent/App/Panel/PanelTheme.h"

namespace orvel {

// Text as it is, never markup, in one of the panel's letters. It either breaks into lines or ends
// with "…" where there is no more room; then a tool tip has all of it. Text of another direction
// is written that way but stays on its side.
class TextLabel : public QLabel {
    Q_OBJECT

public:
    enum class Fit { wraps, elides };
    TextLabel(const QString& text, theme::Letters letters, theme::Tone tone, Fit fit = Fit::wraps,
              QWidget* parent = nullptr);

    void setTone(theme::Tone tone);
    // Wrapping text ends after so many lines.
    void setMaxLines(int lines);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

private:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    QStringList lines(int width) const;
    void updateLetters();

    const theme::Letters letters;
    theme::Tone tone;
    const Fit fit;
    int maxLines = 12;
};

}  // namespace orvel
