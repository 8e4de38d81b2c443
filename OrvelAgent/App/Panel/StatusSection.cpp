#include "OrvelAgent/App/Panel/StatusSection.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

namespace {

struct Mark {
    const char16_t* symbol;
    theme::Tone tone;
};

Mark markOf(StatusSection::Kind kind) {
    using Kind = StatusSection::Kind;
    using Tone = theme::Tone;
    switch (kind) {
        case Kind::starting:
            return {u"clock", Tone::secondary};
        case Kind::notPermitted:
            return {u"laptopcomputer.trianglebadge.exclamationmark", Tone::warning};
        case Kind::connected:
            return {u"iphone.gen3", Tone::good};
        case Kind::failed:
            return {u"exclamationmark.triangle", Tone::bad};
        case Kind::waiting:
            break;
    }
    return {u"iphone.gen3.radiowaves.left.and.right", Tone::accent};
}

}  // namespace

StatusSection::StatusSection(QWidget* parent) : QWidget(parent) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(4, 4, 0, 4);
    row->setSpacing(12);
    symbol = new SymbolView(QStringLiteral("clock"), theme::Tone::secondary, 40);
    symbol->setFilled(true);
    title = new TextLabel({}, theme::Letters::title, theme::Tone::primary);
    detail =
        new TextLabel({}, theme::Letters::caption, theme::Tone::secondary, TextLabel::Fit::elides);
    disconnectButton = new PanelButton(texts::disconnect, PanelButton::Look::plain);
    auto* lines = new QVBoxLayout;
    lines->setSpacing(1);
    lines->addStretch();
    lines->addWidget(title);
    lines->addWidget(detail);
    lines->addStretch();
    row->addWidget(symbol);
    row->addLayout(lines, 1);
    row->addWidget(disconnectButton);
    connect(disconnectButton, &PanelButton::clicked, this, &StatusSection::disconnectWanted);
}

void StatusSection::show(Kind kind, const QString& titleText, const QString& detailText) {
    const Mark mark = markOf(kind);
    symbol->show(QString::fromUtf16(mark.symbol), mark.tone);
    title->setText(titleText);
    title->setMaxLines(kind == Kind::failed ? 5 : 2);
    detail->setText(detailText);
    detail->setVisible(!detailText.isEmpty());
    disconnectButton->setVisible(kind == Kind::connected);
    setAccessibleName(titleText);
}

}  // namespace orvel
