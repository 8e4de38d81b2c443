#include "OrvelAgent/App/Panel/PanelPlace.h"

#include <algorithm>

namespace orvel {

namespace {
constexpr int distance = 6;

// Of [least, most], least where they contradict each other: the top and the left stay visible.
int within(int value, int least, int most) {
    return std::max(least, std::min(value, most));
}
}  // namespace

QPoint panelPlace(const QRect& icon, const QSize& panel, const QRect& freeArea) {
    const QRect room = freeArea.adjusted(distance, distance, -distance, -distance);
    const int lastX = room.right() + 1 - panel.width(), lastY = room.bottom() + 1 - panel.height();
    const int x = within(icon.x() + (icon.width() - panel.width()) / 2, room.left(), lastX);
    const bool isAbove = icon.center().y() < freeArea.center().y();
    const int y = isAbove ? icon.bottom() + 1 + distance : icon.top() - distance - panel.height();
    return {x, within(y, room.top(), lastY)};
}

int panelHeightLimit(const QRect& freeArea) {
    return freeArea.height() - 2 * distance;
}

}  // namespace orvel
