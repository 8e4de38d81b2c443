#pragma once

#include <string_view>

namespace orvel {

// Orders versions as Debian does (deb-version(7)), so that what is newer here is newer for the
// system's installer too: below 0 when `a` is older than `b`, 0 when they are the same, above 0
// when it is newer.
//     1.0~beta2 < 1.0~beta10 < 1.0 = 1.0-0 < 1.0-1 < 1.0+git7-1 < 1.0.1 < 1.2 < 1.10 < 1:0.1
// Any text has its place, and numbers may have any length.
int compareVersions(std::string_view a, std::string_view b);

}  // namespace orvel
