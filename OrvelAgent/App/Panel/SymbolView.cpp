#include "OrvelAgent/App/Panel/SymbolView.h"

#include <QPainter>

#include "OrvelAgent/App/Panel/Symbol.h"

namespace orvel {

SymbolView::SymbolView(const QString& name, theme::Tone symbolTone, int size, QWidget* parent)
    : QWidget(parent), symbol(name), tone(symbolTone) {
    setFixedSize(size, size);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void SymbolView::show(const QString& name, theme::Tone symbolTone) {
    symbol = name;
    tone = symbolTone;
    update();
}

void SymbolView::setFilled(bool filled) {
    isFilled = filled;
    update();
}

void SymbolView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF area = rect();
    auto ink = theme::colour(palette(), tone);
    if (isFilled) {
        painter.setPen(Qt::NoPen);
        QColor field = ink;
        field.setAlphaF(theme::isDark(palette()) ? 0.24f : 0.13f);
        painter.setBrush(field);
        painter.drawEllipse(area);
        const qreal inset = area.width() * 0.2;
        area.adjust(inset, inset, -inset, -inset);
    }
    paintSymbol(painter, area, symbol, ink);
}

}  // namespace orvel
