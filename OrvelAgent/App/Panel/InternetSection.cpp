#include "OrvelAgent/App/Panel/InternetSection.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/ChoiceBar.h"
#include "OrvelAgent/App/Panel/Disclosure.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

namespace {

// A line with its symbol, hidden as long as it says nothing.
QWidget* noteWith(const QString& symbol, theme::Tone tone, TextLabel* text) {
    auto* note = new QWidget;
    auto* row = new QHBoxLayout(note);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(theme::rowSpacing);
    row->addWidget(new SymbolView(symbol, tone, 16), 0, Qt::AlignTop);
    row->addWidget(text, 1);
    note->hide();
    return note;
}

}  // namespace

InternetSection::InternetSection(QWidget* parent) : Card(parent) {
    addHeading(QStringLiteral("globe"), texts::internet);
    modes = new ChoiceBar({texts::on, texts::standby, texts::off});
    modes->setAccessibleName(texts::internet);
    meaning = new TextLabel({}, theme::Letters::caption, theme::Tone::secondary);
    connecting =
        noteWith(QStringLiteral("clock"), theme::Tone::warning,
                 new TextLabel(texts::connecting, theme::Letters::caption, theme::Tone::warning));
    unlockedText = new TextLabel({}, theme::Letters::caption, theme::Tone::primary);
    unlocked = noteWith(QStringLiteral("iphone.gen3.radiowaves.left.and.right"), theme::Tone::good,
                        unlockedText);
    disclosure = new Disclosure(texts::history);
    history = new QWidget;
    auto* historyRows = new QVBoxLayout(history);
    historyRows->setContentsMargins(Disclosure::textIndent(), 0, 0, 0);
    historyRows->setSpacing(4);
    history->hide();
    for (QWidget* each : std::initializer_list<QWidget*>{modes, meaning, connecting, unlocked,
                                                         disclosure, history}) {
        rows()->addWidget(each);
    }
    connect(modes, &ChoiceBar::chosen, this,
            [this](int index) { Q_EMIT modeChosen(static_cast<Mode>(index)); });
    connect(disclosure, &Disclosure::toggled, history, &QWidget::setVisible);
    showHistory({});
}

void InternetSection::showMode(Mode shown) {
    mode = shown;
    modes->show(static_cast<int>(mode));
    updateTexts();
}

void InternetSection::showOnline(bool online) {
    isOnline = online;
    updateTexts();
}

void InternetSection::updateTexts() {
    meaning->setText((mode == Mode::on        ? texts::onMeans
                      : mode == Mode::standby ? texts::standbyMeans
                                              : texts::offMeans));
    connecting->setVisible(!isOnline && mode != Mode::off);
}

void InternetSection::showUnlocked(const std::optional<QString>& until) {
    unlocked->setVisible(until.has_value());
    if (until) unlockedText->setText(texts::unlockedUntil.arg(*until));
}

void InternetSection::showHistory(const QStringList& lines) {
    qDeleteAll(history->findChildren<TextLabel*>(Qt::FindDirectChildrenOnly));
    for (const QString& line : lines.isEmpty() ? QStringList(texts::noHistory) : lines) {
        history->layout()->addWidget(
            new TextLabel(line, theme::Letters::caption, theme::Tone::secondary));
    }
}

}  // namespace orvel
