#include "OrvelAgent/App/ShortTime.h"

#include <QDateTime>

namespace orvel {

namespace {

qint64 milliseconds(WallTime time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

std::string formatted(const QDateTime& time, const QLocale& locale) {
    // The C locale's short form has seconds.
    const QString text = locale.language() == QLocale::C
                             ? time.time().toString(QStringLiteral("HH:mm"))
                             : locale.toString(time.time(), QLocale::ShortFormat);
    return text.toStdString();
}

}  // namespace

std::string shortTime(WallTime time, const QLocale& locale, const QTimeZone& zone) {
    return formatted(QDateTime::fromMSecsSinceEpoch(milliseconds(time), zone), locale);
}

std::string shortTime(WallTime time) {
    return formatted(QDateTime::fromMSecsSinceEpoch(milliseconds(time)), QLocale::system());
}

}  // namespace orvel
