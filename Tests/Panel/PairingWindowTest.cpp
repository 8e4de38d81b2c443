// The window of a new phone, with the real pairing behind it.

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>

#include "OrvelAgent/App/Panel/AgentWindows.h"
#include "OrvelAgent/App/Panel/PairingWindow.h"
#include "Tests/Panel/PanelDesk.h"

namespace orvel {
namespace {

class PairingWindowTest : public PanelTest {
protected:
    void start() {
        agent.start();
        windows.emplace(AgentWindows::Parts{*agent.model, nullptr, nullptr, "1", "", true});
        windows->start();
    }
    static QWidget* shown() {
        for (QWidget* each : QApplication::topLevelWidgets()) {
            if (qobject_cast<PairingWindow*>(each) && each->isVisible()) return each;
        }
        return nullptr;
    }
    void click(const QString& caption) {
        auto* button = find<QPushButton>(*shown(), caption);
        ASSERT_TRUE(button) << caption.toStdString();
        QTest::mouseClick(button, Qt::LeftButton);
        agent.time.runPending();
    }
    std::optional<AgentWindows> windows;
};

TEST_F(PairingWindowTest, showsTheCodeWithoutTakingTheFocusAndGoesWithIt) {
    QLineEdit typing;
    typing.show();
    typing.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&typing, 20'000));
    start();
    EXPECT_FALSE(shown());
    TestPhone phone = agent.phone();
    phone.shakeHands();
    QWidget* window = shown();
    ASSERT_TRUE(window);
    const QString code = QString::fromStdString(phone.code);
    EXPECT_TRUE(find<QLabel>(*window, code.left(3) + u'\u2002' + code.mid(3)));
    const QString spelled = QString(code).replace(QRegularExpression("(.)"), "\\1 ").trimmed();
    EXPECT_TRUE(find<QLabel>(*window, "Eşleşme kodu: " + spelled));
    EXPECT_FALSE(find<QPushButton>(*window, "İzin ver"));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window, 20'000));
    EXPECT_TRUE(typing.isActiveWindow());
    const QPoint offset = window->frameGeometry().center() - window->screen()->geometry().center();
    EXPECT_LE(offset.manhattanLength(), 4);
    phone.send({phone.helloWithPin()});
    EXPECT_FALSE(shown());
    EXPECT_EQ(agent.model->devices().size(), 1u);
}

TEST_F(PairingWindowTest, refuses) {
    start();
    TestPhone phone = agent.phone();
    phone.shakeHands();
    ASSERT_TRUE(shown());
    click("Reddet");
    EXPECT_FALSE(shown());
    EXPECT_TRUE(agent.model->devices().empty());
}

TEST_F(PairingWindowTest, asksBeforePairingWhereThatIsWanted) {
    agent.defaults.set("askBeforePairing", true);
    start();
    TestPhone phone = agent.phone();
    phone.shakeHands();
    phone.send({phone.helloWithPin()});
    ASSERT_TRUE(shown());
    EXPECT_TRUE(agent.model->devices().empty());
    click("İzin ver");
    EXPECT_FALSE(shown());
    EXPECT_EQ(agent.model->devices().size(), 1u);
}

}  // namespace
}  // namespace orvel
