#include "OrvelAgent/App/Panel/CodeLabel.h"

#include <QApplication>

#include "OrvelAgent/App/Panel/PanelTexts.h"

namespace orvel {

CodeLabel::CodeLabel(qreal size, QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setAlignment(Qt::AlignCenter);
    QFont digits = QApplication::font();
    digits.setPointSizeF(digits.pointSizeF() * size);
    digits.setWeight(QFont::DemiBold);
    digits.setLetterSpacing(QFont::PercentageSpacing, 108);
    setFont(digits);
}

void CodeLabel::setCode(const QString& code) {
    QString grouped;
    for (qsizetype i = 0; i < code.size(); ++i) {
        if (i > 0 && i % 3 == 0) grouped += u'\u2002';  // an en space: as wide as a digit
        grouped += code[i];
    }
    setText(grouped);
    QString spelled = texts::code;
    for (const QChar digit : code)
        spelled += digit + QStringLiteral(" ");
    setAccessibleName(spelled.trimmed());
}

}  // namespace orvel
