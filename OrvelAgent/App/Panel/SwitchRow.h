#pragma once

#include <QCheckBox>

namespace orvel {

// A setting: what it is called, what it means, and a switch. The whole row is the control.
class SwitchRow : public QCheckBox {
    Q_OBJECT

public:
    explicit SwitchRow(const QString& title, const QString& meaning = {},
                       QWidget* parent = nullptr);
    // Without a signal.
    void show(bool on);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    int heightForWidth(int width) const override;

private:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& position) const override;
    void focusInEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    int meaningHeight(int width) const;

    const QString meaning;
    bool showsFocus = false;
};

}  // namespace orvel
