#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

// The panel's look, made of the palette and the font of the desktop, so that it follows both.
// Lengths are logical pixels.
namespace orvel::theme {

inline constexpr int panelWidth = 360;
inline constexpr int outerMargin = 12;  // around the cards
inline constexpr int cardSpacing = 10;
inline constexpr int cardPadding = 12;
inline constexpr int rowSpacing = 8;
inline constexpr qreal cardRadius = 10;
inline constexpr qreal controlRadius = 7;
inline constexpr int symbolSize = 18;

// What a text or symbol says, by its colour.
enum class Tone { primary, secondary, accent, good, warning, bad, onFill };

bool isDark(const QPalette& palette);
QColor colour(const QPalette& palette, Tone tone);
QColor cardFill(const QPalette& palette);
QColor hairline(const QPalette& palette);
// Of a button or a track: at rest, under the pointer, held down.
QColor controlFill(const QPalette& palette);
QColor controlFillHovered(const QPalette& palette);
QColor controlFillPressed(const QPalette& palette);

enum class Letters { body, strong, caption, heading, title };
QFont font(Letters letters, const QFont& base);

}  // namespace orvel::theme
