#pragma once

#include "OrvelAgent/App/Panel/Card.h"

namespace orvel {

class CodeLabel;

// The code of a new phone, while there is one.
class CodeSection : public Card {
    Q_OBJECT

public:
    explicit CodeSection(QWidget* parent = nullptr);
    void show(const QString& code);  // empty hides the section

private:
    CodeLabel* digits;
};

}  // namespace orvel
