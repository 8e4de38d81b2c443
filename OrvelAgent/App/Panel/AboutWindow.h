#pragma once

#include <QWidget>

namespace orvel {

// Which program this is, in which version, and where there is more about it.
class AboutWindow : public QWidget {
    Q_OBJECT

public:
    // `webHost`: of the product's web site; empty leaves the links out.
    AboutWindow(const QString& version, const QString& webHost);

    // Text and links as markup.
    static QString credits(const QString& webHost);

private:
    void keyPressEvent(QKeyEvent* event) override;
};

}  // namespace orvel
