#include "OrvelAgent/App/Panel/Symbol.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

// Outside of every namespace, as Qt has it: a static library's resources have to be named.
static void initialiseResources() {
    Q_INIT_RESOURCE(Symbols);
}

namespace orvel {

namespace {

QByteArray drawing(const QString& name) {
    static const bool ready = (initialiseResources(), true);
    QFile file(QStringLiteral(":/symbols/%1.svg").arg(name));
    if (!ready || !file.open(QIODevice::ReadOnly)) {
        qFatal("orvel: no symbol %s", qPrintable(name));
    }
    return file.readAll();
}

}  // namespace

void paintSymbol(QPainter& painter, const QRectF& area, const QString& name, const QColor& colour) {
    QSvgRenderer renderer(drawing(name).replace("currentColor", colour.name().toLatin1()));
    painter.save();
    painter.setOpacity(painter.opacity() * colour.alphaF());
    renderer.render(&painter, area);
    painter.restore();
}

QIcon programIcon() {
    QIcon icon;
    for (const int size : {16, 32, 48, 128}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paintSymbol(painter, pixmap.rect(), QStringLiteral("orvel-agent"), Qt::black);
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

}  // namespace orvel
