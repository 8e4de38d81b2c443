#include "OrvelAgent/App/Panel/DevicesSection.h"

#include <QHBoxLayout>
#include <algorithm>

#include "OrvelAgent/App/Panel/Confirmation.h"
#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

namespace {

// A name cannot turn the sentence around it: it is isolated (Unicode Standard Annex 9).
QString quoted(const QString& name) {
    return u'\u2068' + name + u'\u2069';
}

}  // namespace

DevicesSection::DevicesSection(QWidget* parent) : Card(parent) {
    auto* heading = addHeading(QStringLiteral("iphone.gen3"), texts::phones);
    removeAll = new PanelButton(texts::removeAll, PanelButton::Look::link);
    heading->addWidget(removeAll);
    hint = new TextLabel(texts::noPhones, theme::Letters::caption, theme::Tone::secondary);
    rows()->addWidget(hint);
    connect(removeAll, &PanelButton::clicked, this, &DevicesSection::askAboutAll);
    show({});
}

void DevicesSection::show(const QList<DeviceRow::Phone>& phones) {
    // The phone in question may be gone, and so may all.
    const bool isThere = std::any_of(phones.begin(), phones.end(), [this](const auto& phone) {
        return questionable.isEmpty() || phone.id == questionable;
    });
    if (question && !isThere) stopAsking();

    while (devices.size() > phones.size())
        delete devices.takeLast();
    while (devices.size() < phones.size()) {
        auto* row = new DeviceRow;
        connect(row, &DeviceRow::removalWanted, this, [this, row] { askAbout(row); });
        rows()->addWidget(row);
        devices << row;
    }
    for (qsizetype i = 0; i < phones.size(); ++i) {
        if (devices[i]->phone() != phones[i]) devices[i]->show(phones[i]);
        devices[i]->setVisible(!question || phones[i].id != questionable);
    }
    orderFocus();
    hint->setVisible(phones.isEmpty());
    removeAll->setVisible(!phones.isEmpty());
}

// Tab goes from top to bottom, whenever a row or a question was made.
void DevicesSection::orderFocus() {
    QWidget* last = removeAll;
    for (int i = 0; i < rows()->count(); ++i) {
        const QWidget* row = rows()->itemAt(i)->widget();
        if (!row) continue;
        for (auto* button : row->findChildren<PanelButton*>()) {
            setTabOrder(last, button);
            last = button;
        }
    }
}

void DevicesSection::askAbout(DeviceRow* row) {
    stopAsking();
    auto* confirmation = new Confirmation(texts::confirmOne.arg(quoted(row->phone().name)),
                                          texts::confirmOneMeans, texts::remove);
    questionable = row->phone().id;
    connect(confirmation, &Confirmation::confirmed, this, [this] {
        const QString id = questionable;
        stopAsking();
        Q_EMIT removalConfirmed(id);
    });
    row->hide();
    ask(confirmation, rows()->indexOf(row) + 1);
}

void DevicesSection::askAboutAll() {
    stopAsking();
    auto* confirmation = new Confirmation(texts::confirmAll, {}, texts::removeAll);
    connect(confirmation, &Confirmation::confirmed, this, [this] {
        stopAsking();
        Q_EMIT removalOfAllConfirmed();
    });
    ask(confirmation, 1);
}

void DevicesSection::ask(Confirmation* confirmation, int position) {
    question = confirmation;
    rows()->insertWidget(position, question);
    connect(question, &Confirmation::cancelled, this, &DevicesSection::stopAsking);
    orderFocus();
    question->show();
    question->takeFocus();
    Q_EMIT asking(question);
}

void DevicesSection::stopAsking() {
    if (!question) return;
    // The focus goes back to where the question came from, if it was with the answers.
    const bool hadFocus = question->isAncestorOf(focusWidget()) || question->hasFocus();
    question->hide();
    question->deleteLater();  // one of its buttons may be speaking
    question = nullptr;
    for (DeviceRow* row : devices) {
        row->show(row->phone());
        row->setVisible(true);
        if (hadFocus && row->phone().id == questionable) row->takeFocus();
    }
    if (hadFocus && questionable.isEmpty()) removeAll->setFocus(Qt::OtherFocusReason);
    questionable.clear();
}

}  // namespace orvel
