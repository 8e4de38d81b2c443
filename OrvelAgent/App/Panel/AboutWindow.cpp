#include "OrvelAgent/App/Panel/AboutWindow.h"

#include <QKeyEvent>
#include <QLabel>
#include <QVBoxLayout>

#include "OrvelAgent/App/Panel/PanelTexts.h"
#include "OrvelAgent/App/Panel/Symbol.h"
#include "OrvelAgent/App/Panel/SymbolView.h"
#include "OrvelAgent/App/Panel/TextLabel.h"

namespace orvel {

AboutWindow::AboutWindow(const QString& version, const QString& webHost)
    : QWidget(nullptr, Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint) {
    setWindowTitle(texts::about);
    setWindowIcon(programIcon());
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(32, 28, 32, 28);
    column->setSpacing(6);
    column->setSizeConstraint(QLayout::SetFixedSize);
    column->addWidget(new SymbolView(QStringLiteral("orvel-agent"), theme::Tone::primary, 80), 0,
                      Qt::AlignHCenter);
    column->addSpacing(6);
    for (auto* label : {new TextLabel(texts::program, theme::Letters::title, theme::Tone::primary),
                        new TextLabel(texts::version + version, theme::Letters::caption,
                                      theme::Tone::secondary)}) {
        label->setAlignment(Qt::AlignHCenter);
        label->setFixedWidth(280);
        column->addWidget(label);
    }
    column->addSpacing(6);
    // Links take their colour when they become text.
    const QString ink = theme::colour(palette(), theme::Tone::accent).name();
    auto* credits = new QLabel(AboutWindow::credits(webHost).replace(
        QStringLiteral("<a "), QStringLiteral("<a style=\"color:%1\" ").arg(ink)));
    credits->setTextFormat(Qt::RichText);
    credits->setAlignment(Qt::AlignCenter);
    credits->setWordWrap(true);
    credits->setFixedWidth(280);
    credits->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    credits->setOpenExternalLinks(true);
    column->addWidget(credits);
}

QString AboutWindow::credits(const QString& webHost) {
    QString markup = QString(texts::credits).toHtmlEscaped();
    if (webHost.isEmpty()) return markup;
    const QString site = QStringLiteral("https://") + webHost.toHtmlEscaped();
    const auto link = [&](const char* path, const QString& caption) {
        return QStringLiteral("<a href=\"%1%2\">%3</a>")
            .arg(site, QLatin1String(path), caption.toHtmlEscaped());
    };
    markup += QStringLiteral("<br><br>") + QStringList{link("", texts::website),
                                                       link("/support", texts::support),
                                                       link("/privacy", texts::privacy)}
                                               .join(QStringLiteral(" &nbsp;·&nbsp; "));
    return markup;
}

void AboutWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
    } else {
        QWidget::keyPressEvent(event);
    }
}

}  // namespace orvel
