#include "OrvelAgent/App/Panel/TextLabel.h"

#include <QApplication>
#include <QEvent>
#include <QPainter>
#include <QTextLayout>

namespace orvel {

TextLabel::TextLabel(const QString& text, theme::Letters textLetters, theme::Tone textTone,
                     Fit textFit, QWidget* parent)
    : QLabel(parent), letters(textLetters), tone(textTone), fit(textFit) {
    setTextFormat(Qt::PlainText);
    setWordWrap(fit == Fit::wraps);  // else the label takes its height for width back
    setText(text);
    // Not Fixed where it wraps: that would end at the height of the size hint.
    QSizePolicy policy(fit == Fit::elides ? QSizePolicy::Ignored : QSizePolicy::Preferred,
                       fit == Fit::elides ? QSizePolicy::Fixed : QSizePolicy::Minimum);
    policy.setHeightForWidth(fit == Fit::wraps);
    setSizePolicy(policy);
    updateLetters();
}

void TextLabel::setTone(theme::Tone textTone) {
    tone = textTone;
    update();
}

void TextLabel::setMaxLines(int count) {
    maxLines = count;
    updateGeometry();
}

void TextLabel::updateLetters() {
    setFont(theme::font(letters, QApplication::font()));
}

// The text cut into what fits in a line each.
QStringList TextLabel::lines(int width) const {
    const QFontMetrics metrics(font());
    if (fit == Fit::elides) return {metrics.elidedText(text(), Qt::ElideRight, width)};
    QStringList result;
    for (const QString& paragraph : text().split(u'\n')) {
        QTextLayout layout(paragraph, font());
        layout.beginLayout();
        for (QTextLine line; (line = layout.createLine()).isValid();) {
            line.setLineWidth(width);
            if (result.size() == maxLines - 1) {
                result << metrics.elidedText(paragraph.mid(line.textStart()), Qt::ElideRight,
                                             width);
                return result;
            }
            result << paragraph.mid(line.textStart(), line.textLength());
        }
        layout.endLayout();
    }
    return result;
}

QSize TextLabel::sizeHint() const {
    const QFontMetrics metrics(font());
    const int wanted = metrics.horizontalAdvance(text()) + 1;
    return {fit == Fit::wraps ? std::min(wanted, 300) : wanted,
            fit == Fit::wraps ? heightForWidth(std::min(wanted, 300)) : metrics.height()};
}

QSize TextLabel::minimumSizeHint() const {
    return {fit == Fit::wraps ? 60 : 20, QFontMetrics(font()).height()};
}

int TextLabel::heightForWidth(int width) const {
    const QFontMetrics metrics(font());
    const auto count = static_cast<int>(lines(width).size());
    return metrics.height() + (count - 1) * metrics.lineSpacing();
}

void TextLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setPen(theme::colour(palette(), tone));
    painter.setFont(font());
    // Each line takes its direction from its own text, and stays on the side of the label.
    painter.setLayoutDirection(Qt::LayoutDirectionAuto);
    const bool toRight = layoutDirection() == Qt::RightToLeft;
    const auto side = alignment() & Qt::AlignHCenter ? Qt::AlignHCenter
                      : toRight                      ? Qt::AlignRight
                                                     : Qt::AlignLeft;
    const QFontMetrics metrics(font());
    QRect line(0, 0, width(), metrics.height());
    for (const QString& text : lines(width())) {
        painter.drawText(line, side | Qt::AlignAbsolute | Qt::AlignVCenter | Qt::TextSingleLine,
                         text);
        line.translate(0, metrics.lineSpacing());
    }
}

bool TextLabel::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const bool isCut =
            fit == Fit::elides && QFontMetrics(font()).horizontalAdvance(text()) > width();
        // A tool tip takes markup, so the text has to become some.
        setToolTip(isCut ? QStringLiteral("<span>%1</span>").arg(text().toHtmlEscaped())
                         : QString());
    }
    return QLabel::event(event);
}

void TextLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange) updateLetters();
}

}  // namespace orvel
