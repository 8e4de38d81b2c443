#pragma once

#include <QRect>

namespace orvel {

// Where a panel opens for an icon: centred on it, on the side of it that has room, and inside of
// the screen's free area (without bars), from which it keeps a small distance. All in the same
// coordinates.
QPoint panelPlace(const QRect& icon, const QSize& panel, const QRect& freeArea);

// The height that it may have there.
int panelHeightLimit(const QRect& freeArea);

}  // namespace orvel
