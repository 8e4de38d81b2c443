#include "OrvelAgent/App/Panel/PanelApplication.h"

#include <QFont>
#include <clocale>

#include "OrvelAgent/App/Panel/PanelTexts.h"

namespace orvel {

namespace {

// What Qt takes where no desktop names a font.
constexpr char16_t nobodysFont[] = u"Sans Serif";

}  // namespace

PanelApplication::PanelApplication() {
    // Qt has just switched the C library to the user's language, in which numbers have commas and,
    // in Turkish, I is no capital i. What programs say to each other is not to know; Qt itself does
    // not ask the C library.
    if (!std::setlocale(LC_ALL, "C.UTF-8")) std::setlocale(LC_ALL, "C");
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
