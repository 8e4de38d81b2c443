#include "OrvelAgent/App/Panel/PairingWindow.h"

#include <QAccessible>
#include <QCursor>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QScreen>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/CodeLabel.h"
#include "OrvelAgent/App/Panel/PanelButton.h"
#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/Symbol.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

namespace {
constexpr int windowWidth = 400, padding = 28;
}

PairingWindow::PairingWindow()
    : QWidget(nullptr, Qt::Dialog | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setWindowTitle(texts::pairingTitle);
    setWindowIcon(programIcon());
    setAccessibleName(texts::pairingTitle);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(padding, padding, padding, padding - 6);
    column->setSpacing(8);
    column->setSizeConstraint(QLayout::SetFixedSize);
    auto* symbol = new SymbolView(QStringLiteral("iphone.gen3.radiowaves.left.and.right"),
                                  theme::Tone::accent, 64);
    symbol->setFilled(true);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    column->addSpacing(4);
    const auto centred = [&](theme::Letters letters, theme::Tone tone, TextLabel::Fit fit) {
        auto* label = new TextLabel({}, letters, tone, fit);
        label->setAlignment(Qt::AlignHCenter);
        label->setFixedWidth(windowWidth - 2 * padding);
        column->addWidget(label);
        return label;
    };
    centred(theme::Letters::title, theme::Tone::primary, TextLabel::Fit::wraps)
        ->setText(texts::pairingTitle);
    name = centred(theme::Letters::strong, theme::Tone::accent, TextLabel::Fit::elides);
    digits = new CodeLabel(4);
    column->addWidget(digits);
    line = centred(theme::Letters::body, theme::Tone::secondary, TextLabel::Fit::wraps);
    column->addSpacing(8);

    auto* answers = new QHBoxLayout;
    answers->setSpacing(10);
    auto* reject = new PanelButton(texts::reject, PanelButton::Look::plain);
    allow = new PanelButton(texts::allow, PanelButton::Look::prominent);
    answers->addStretch();
    answers->addWidget(reject);
    answers->addWidget(allow);
    answers->addStretch();
    column->addLayout(answers);
    connect(reject, &PanelButton::clicked, this, &PairingWindow::rejected);
    connect(allow, &PanelButton::clicked, this, &PairingWindow::allowed);
}

void PairingWindow::display(const std::optional<QString>& code,
                            const std::optional<QString>& phone) {
    digits->setVisible(code.has_value());
    if (code) digits->setCode(*code);
    name->setVisible(phone.has_value());
    allow->setVisible(phone.has_value());
    if (phone) name->setText(*phone);
    line->setText(phone ? texts::askingLine : texts::pairingLine);
    setAccessibleDescription(code ? digits->accessibleName() : *phone);
    if (isVisible()) return;
    adjustSize();
    const QScreen* screenInUse = QGuiApplication::screenAt(QCursor::pos());
    if (!screenInUse) screenInUse = QGuiApplication::primaryScreen();
    QRect area(QPoint(), size());
    area.moveCenter(screenInUse->availableGeometry().center());
    move(area.topLeft());
    show();
    QAccessibleEvent announced(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&announced);
}

void PairingWindow::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setPen(theme::controlFillPressed(palette()));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

}  // namespace orvel
