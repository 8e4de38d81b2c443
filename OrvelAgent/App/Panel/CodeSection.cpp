#include "OrvelAgent/App/Panel/CodeSection.h"

#include "OrvelAgent/App/Panel/CodeLabel.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/PanelTheme.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

CodeSection::CodeSection(QWidget* parent) : Card(parent), digits(new CodeLabel(2.4)) {
    auto* line = new TextLabel(texts::enterCode, theme::Letters::body, theme::Tone::secondary);
    line->setAlignment(Qt::AlignHCenter);
    rows()->addWidget(line);
    rows()->addWidget(digits);
    setAccessibleName(texts::enterCode);
}

void CodeSection::show(const QString& code) {
    setVisible(!code.isEmpty());
    if (!code.isEmpty()) digits->setCode(code);
}

}  // namespace orvel
