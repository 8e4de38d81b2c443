#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

class QPainter;

namespace orvel {

// The drawings of App/Symbols, by their file names without the ending; each has one colour, any.

// Drawn anew for the painter's device, so that it is crisp at every scale.
void paintSymbol(QPainter& painter, const QRectF& area, const QString& name, const QColor& colour);

// The program's own icon, for its windows.
QIcon programIcon();

}  // namespace orvel
