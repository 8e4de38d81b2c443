#include "OrvelAgent/App/Panel/PanelTheme.h"

namespace orvel::theme {

namespace {

QColor mixed(const QColor& under, const QColor& over, qreal share) {
    const auto part = [share](int a, int b) {
        return static_cast<int>(std::lround(a + (b - a) * share));
    };
    return QColor(part(under.red(), over.red()), part(under.green(), over.green()),
                  part(under.blue(), over.blue()));
}

// What is disabled fades by itself, from the colours that it has when it is not.
QColor inUse(const QPalette& palette, QPalette::ColorRole role) {
    return palette.color(QPalette::Active, role);
}

// The window's colour with some of the text's in it.
QColor shaded(const QPalette& palette, qreal share) {
    return mixed(inUse(palette, QPalette::Window), inUse(palette, QPalette::WindowText), share);
}

}  // namespace

bool isDark(const QPalette& palette) {
    return inUse(palette, QPalette::Window).lightness() <
           inUse(palette, QPalette::WindowText).lightness();
}

QColor colour(const QPalette& palette, Tone tone) {
    const bool dark = isDark(palette);
    switch (tone) {
        case Tone::primary:
            break;
        case Tone::secondary:
            return shaded(palette, dark ? 0.62 : 0.64);
        case Tone::accent:
            return dark ? QColor(0x6A, 0xA8, 0xFF) : QColor(0x1F, 0x66, 0xD6);
        case Tone::good:
            return dark ? QColor(0x4C, 0xC3, 0x6E) : QColor(0x1B, 0x85, 0x3C);
        case Tone::warning:
            return dark ? QColor(0xFF, 0xB3, 0x40) : QColor(0xA8, 0x60, 0x00);
        case Tone::bad:
            return dark ? QColor(0xFF, 0x7B, 0x72) : QColor(0xC4, 0x2B, 0x2B);
        case Tone::onFill:
            return dark ? QColor(0x10, 0x14, 0x1A) : QColor(Qt::white);
    }
    return inUse(palette, QPalette::WindowText);
}

QColor cardFill(const QPalette& palette) {
    return isDark(palette) ? shaded(palette, 0.055) : mixed(shaded(palette, 0), Qt::white, 0.75);
}
QColor hairline(const QPalette& palette) {
    return shaded(palette, isDark(palette) ? 0.13 : 0.11);
}
QColor controlFill(const QPalette& palette) {
    return shaded(palette, isDark(palette) ? 0.15 : 0.075);
}
QColor controlFillHovered(const QPalette& palette) {
    return shaded(palette, isDark(palette) ? 0.20 : 0.115);
}
QColor controlFillPressed(const QPalette& palette) {
    return shaded(palette, isDark(palette) ? 0.26 : 0.17);
}

QFont font(Letters letters, const QFont& base) {
    QFont result = base;
    const auto scale = [&](qreal factor) {
        if (base.pointSizeF() > 0) {
            result.setPointSizeF(base.pointSizeF() * factor);
        } else {
            result.setPixelSize(static_cast<int>(std::lround(base.pixelSize() * factor)));
        }
    };
    switch (letters) {
        case Letters::body:
            break;
        case Letters::strong:
            result.setWeight(QFont::DemiBold);
            break;
        case Letters::caption:
            scale(0.88);
            break;
        case Letters::heading:
            scale(0.88);
            result.setWeight(QFont::DemiBold);
            break;
        case Letters::title:
            scale(1.15);
            result.setWeight(QFont::DemiBold);
            break;
    }
    return result;
}

}  // namespace orvel::theme
