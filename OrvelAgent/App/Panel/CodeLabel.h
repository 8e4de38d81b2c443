#pragma once

#include <QLabel>

namespace orvel {

// A pairing code in large digits and groups of three: "123 456". Screen readers spell it.
class CodeLabel : public QLabel {
    Q_OBJECT

public:
    // `size`: of a digit, in multiples of the application's font.
    explicit CodeLabel(qreal size, QWidget* parent = nullptr);
    void setCode(const QString& code);
};

}  // namespace orvel
