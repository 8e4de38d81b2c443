#include "OrvelAgent/App/UpdateWindow.h"

#include <QBoxLayout>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTextDocumentFragment>
#include <optional>
#include <utility>

namespace orvel {

namespace {

constexpr int contentWidth = 400;  // device-independent pixels
constexpr int notesHeight = 180;

QString amount(std::uint64_t bytes) {
    static const QLocale turkish(QLocale::Turkish);
    return turkish.formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

QString versionText(const AvailableUpdate& update) {
    return QString::fromStdString(update.displayVersion);
}

// Text alone: what a feed says cannot load or link to anything here.
QString plain(const std::string& notes) {
    auto text = QTextDocumentFragment::fromHtml(QString::fromStdString(notes)).toPlainText();
    text.remove(QChar(QChar::ObjectReplacementCharacter));  // stands for a picture
    return text.trimmed();
}

}  // namespace

// What the window shows in one state.
struct UpdateWindow::Look {
    struct Button {
        QString text;
        std::function<void()> action;
    };
    QString heading, detail = {}, notes = {};
    std::optional<double> part = std::nullopt;  // of the work that is done; below 0: nobody knows
    std::array<Button, 3> buttons = {};
};

struct UpdateWindow::Looks {
    UpdateWindow& window;
    Updater& updater;

    Look::Button closing(const QString& text) const {
        return {text, [&w = window] { w.close(); }};
    }
    Look::Button asking(const QString& text, void (Updater::*slot)()) const {
        return {text, [&u = updater, slot] { (u.*slot)(); }};
    }

    Look operator()(const UpdateState::Idle&) const { return {}; }
    Look operator()(const UpdateState::Checking&) const {
        return {updater.stateText(), {}, {}, -1, {{{}, closing("Vazgeç"), {}}}};
    }
    Look operator()(const UpdateState::UpToDate&) const {
        return {updater.stateText(),
                "Kurulu sürüm: " + window.installedVersion,
                {},
                std::nullopt,
                {{{}, {}, closing("Tamam")}}};
    }
    Look operator()(const UpdateState::Found& found) const {
        return {"Orvel Agent'ın yeni bir sürümü hazır",
                QStringLiteral("Yeni sürüm: %1 (%2)\nKurulu sürüm: %3")
                    .arg(versionText(found.update), amount(found.update.length),
                         window.installedVersion),
                plain(found.update.notes),
                std::nullopt,
                {{asking("Bu sürümü atla", &Updater::skip), closing("Sonra"),
                  asking("Yükle", &Updater::install)}}};
    }
    Look operator()(const UpdateState::Loading& loading) const {
        const auto total = loading.update.length;
        return {updater.stateText(),
                amount(loading.received) + " / " + amount(total),
                {},
                static_cast<double>(loading.received) / static_cast<double>(total),
                {{{}, closing("Vazgeç"), {}}}};
    }
    Look operator()(const UpdateState::Ready&) const {
        return {updater.stateText(),
                "Kurulum için sistem parolanı isteyebilir.",
                {},
                std::nullopt,
                {{{}, closing("Sonra"), asking("Kur", &Updater::install)}}};
    }
    Look operator()(const UpdateState::Installing&) const {
        return {updater.stateText(), {}, {}, -1, {}};
    }
    Look operator()(const UpdateState::Installed&) const {
        return {updater.stateText(),
                "Bağlı bir telefon varsa bağlantısı kısa süre kesilir.",
                {},
                std::nullopt,
                {{{}, closing("Sonra"), asking("Yeniden başlat", &Updater::relaunch)}}};
    }
    Look operator()(const UpdateState::Opened&) const {
        return {updater.stateText(), {}, {}, std::nullopt, {{{}, {}, closing("Tamam")}}};
    }
    Look operator()(const UpdateState::Failed&) const {
        return {"Güncellenemedi",
                updater.stateText(),
                {},
                std::nullopt,
                {{{}, closing("Kapat"), asking("Yeniden dene", &Updater::checkForUpdates)}}};
    }
};

UpdateWindow::UpdateWindow(Updater& shownUpdater, QString version, QWidget* parent)
    : QWidget(parent),
      updater(shownUpdater),
      installedVersion(std::move(version)),
      heading(new QLabel(this)),
      detail(new QLabel(this)),
      notes(new QPlainTextEdit(this)),
      progress(new QProgressBar(this)) {
    setWindowTitle("Güncelleme");
    setWindowFlag(Qt::Dialog);
    auto font = heading->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.15);
    heading->setFont(font);
    for (auto* label : {heading, detail}) {
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
        label->setFixedWidth(contentWidth);
    }
    notes->setReadOnly(true);
    notes->setFixedHeight(notesHeight);
    notes->setAccessibleName("Bu sürümdeki yenilikler");
    notes->setTabChangesFocus(true);
    progress->setTextVisible(false);
    progress->setAccessibleName("İlerleme");

    auto* const row = new QHBoxLayout;
    for (std::size_t i = 0; i < buttons.size(); ++i) {
        buttons[i] = new QPushButton(this);
        buttons[i]->setAutoDefault(true);
        connect(buttons[i], &QPushButton::clicked, this, [this, i] { choose(i); });
        row->addWidget(buttons[i]);
        if (i == 0) row->addStretch();
    }
    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 16);
    column->setSpacing(10);
    for (auto* widget : std::initializer_list<QWidget*>{heading, detail, notes, progress})
        column->addWidget(widget);
    column->addSpacing(6);
    column->addLayout(row);
    column->setSizeConstraint(QLayout::SetFixedSize);  // the window fits what it shows

    connect(&updater, &Updater::interfaceWanted, this, &UpdateWindow::present);
    connect(&updater, &Updater::stateChanged, this, &UpdateWindow::refresh);
}

void UpdateWindow::present() {
    wanted = true;
    refresh();
    if (!isVisible()) return;
    raise();
    activateWindow();
}

void UpdateWindow::refresh() {
    if (std::holds_alternative<UpdateState::Idle>(updater.state().value)) {
        if (isVisible()) wanted = false;
        hide();
    } else if (wanted) {
        display(std::visit(Looks{*this, updater}, updater.state().value));
    }
}

void UpdateWindow::display(const Look& look) {
    heading->setText(look.heading);
    detail->setText(look.detail);
    detail->setVisible(!look.detail.isEmpty());
    if (notes->toPlainText() != look.notes) notes->setPlainText(look.notes);
    notes->setVisible(!look.notes.isEmpty());
    progress->setVisible(look.part.has_value());
    if (look.part) {
        constexpr int steps = 1000;
        progress->setRange(0, *look.part < 0 ? 0 : steps);
        progress->setValue(*look.part < 0 ? -1 : static_cast<int>(*look.part * steps));
    }
    for (std::size_t i = 0; i < buttons.size(); ++i) {
        const auto& button = look.buttons[i];
        actions[i] = button.action;
        buttons[i]->setText(button.text);
        buttons[i]->setVisible(!button.text.isEmpty());
    }
    // The steps of a loading leave the focus where it is.
    const auto kind = updater.state().value.index();
    if (!isVisible() || shown != kind) {
        shown = kind;
        (actions[2] ? buttons[2] : buttons[1])->setFocus();
    }
    show();
}

void UpdateWindow::choose(std::size_t button) {
    // The state that it leads to changes the actions.
    const auto action = actions[button];
    if (action) action();
}

void UpdateWindow::closeEvent(QCloseEvent* event) {
    // What becomes of an installation is told all the same.
    wanted = std::holds_alternative<UpdateState::Installing>(updater.state().value);
    event->accept();
    updater.dismiss();
}

void UpdateWindow::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Cancel)) {
        close();
    } else {
        QWidget::keyPressEvent(event);
    }
}

}  // namespace orvel
