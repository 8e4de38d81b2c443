#include "OrvelAgent/App/Panel/PanelApplication.h"

#include <QFont>

#include "OrvelAgent/App/Panel/PanelTexts.h"

namespace orvel {

namespace {

// What Qt takes where no desktop names a font.
constexpr char16_t nobodysFont[] = u"Sans Serif";

}  // namespace

PanelApplication::PanelApplication() {
    QApplication::setApplicationDisplayName(texts::program);
    QApplication::setDesktopFileName(QStringLiteral("orvel-agent"));
    QApplication::setQuitOnLastWindowClosed(false);
    QFont font = QApplication::font();
    if (font.family() == QStringView(nobodysFont)) {
        font.setFamilies({QStringLiteral("Inter"), font.family()});
        font.setPointSizeF(10);
        QApplication::setFont(font);
    }
}

}  // namespace orvel
