#pragma once

#include <QLocale>
#include <QTimeZone>
#include <string>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// The time of day in the locale's short style, without the date: "14:05", "2:05 PM".
std::string shortTime(WallTime time, const QLocale& locale, const QTimeZone& zone);

// The same for the user of this computer, who may change both while the program runs.
std::string shortTime(WallTime time);

}  // namespace orvel
