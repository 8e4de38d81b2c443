// What the panel shows of the model, and what becomes of clicks and keys.

#include <gmock/gmock.h>

#include <QAccessible>
#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <cctype>
#include <clocale>

#include "OrvelAgent/App/LoginItem.h"
#include "OrvelAgent/App/Panel/AboutWindow.h"
#include "OrvelAgent/App/Panel/PanelPlace.h"
#include "OrvelAgent/App/Panel/UpdatesBinding.h"
#include "OrvelAgent/Platform/Fake/FakeLoginService.h"
#include "OrvelAgent/Platform/Fake/FakeUpdateDriver.h"
#include "Tests/Panel/PanelDesk.h"

// What fonts and the toolkit hold until the end of the process; and the path in which the C library
// looked for a locale, which it loses.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\nleak:libQt6\nleak:libX11.so\nleak:libxcb.so\nleak:libxkbcommon\n"
           "leak:libdbus-1.so\nleak:libglib-2.0.so\nleak:__argz_add_sep\n";
}

namespace orvel {

std::unique_ptr<PanelDesk> PanelTest::desk;
std::unique_ptr<PanelApplication> PanelTest::application;

namespace {

using namespace std::chrono_literals;

class AgentPanelTest : public PanelTest {
protected:
    void open() {
        agent.start();
        login.emplace(service, agent.defaults);
        panel = std::make_unique<AgentPanel>(*agent.model, &*login);
        panel->openAt(QRect(1200, 980, 22, 20));
        ASSERT_TRUE(QTest::qWaitForWindowActive(panel.get(), 20'000));
    }
    bool shows(const QString& text) const { return find<QLabel>(*panel, text) != nullptr; }
    void click(const QString& button) {
        auto* found = find<QPushButton>(*panel, button);
        ASSERT_TRUE(found) << button.toStdString();
        QTest::mouseClick(found, Qt::LeftButton);
        agent.time.runPending();
    }
    void press(Qt::Key key) {
        QTest::keyClick(panel->focusWidget() ? panel->focusWidget() : panel.get(), key);
        agent.time.runPending();
    }

    FakeLoginService service;
    std::optional<LoginItem> login;
    std::unique_ptr<AgentPanel> panel;
};

// What the rest of the program writes and compares for machines does not follow the user's
// language.
TEST_F(AgentPanelTest, leavesNumbersAndLettersToMachinesAsTheyAre) {
    const locale_t turkish = newlocale(LC_ALL_MASK, TurkishLocale::name, nullptr);
    ASSERT_TRUE(turkish) << "no such locale here, so this would show nothing";
    freelocale(turkish);
    EXPECT_EQ(QLocale::system().language(), QLocale::Turkish);
    char number[8];
    std::snprintf(number, sizeof number, "%.1f", 1.5);
    EXPECT_STREQ(number, "1.5");
    EXPECT_EQ(std::tolower('I'), 'i');
}

TEST_F(AgentPanelTest, showsTheStatusAndDisconnects) {
    open();
    EXPECT_TRUE(shows("Telefon bekleniyor"));
    EXPECT_FALSE(find<QPushButton>(*panel, "Bağlantıyı kes"));
    reportStatus({AgentCore::Status::Connected{"<b>Ayşe</b>\u202E", true}});
    EXPECT_TRUE(shows("<b>Ayşe</b>"));  // text as it is
    EXPECT_TRUE(shows("internetten bağlı"));
    EXPECT_TRUE(find<QPushButton>(*panel, "Bağlantıyı kes"));
    reportStatus({AgentCore::Status::Failed{"47800"}});
    EXPECT_TRUE(shows("Hata: 47800"));
    EXPECT_FALSE(shows("internetten bağlı"));
}

TEST_F(AgentPanelTest, disconnectsTheRealPhone) {
    open();
    TestPhone phone = agent.admittedPhone();
    click("Bağlantıyı kes");
    EXPECT_TRUE(shows("Telefon bekleniyor"));
}

TEST_F(AgentPanelTest, asksForPermissionsAsLongAsTheyAreMissing) {
    agent.permissions.screenRecordingGranted = false;
    open();
    EXPECT_TRUE(shows("Telefondan kullanmak için iki izin gerekiyor."));
    click("İzin ver: Ekran kaydı");
    EXPECT_EQ(agent.permissions.screenRecordingRequests, 1);
    EXPECT_EQ(agent.permissions.screenRecordingPages, 1);
    EXPECT_FALSE(find<QPushButton>(*panel, "İzin ver: Erişilebilirlik"));
    agent.permissions.screenRecordingGranted = true;
    agent.time.advance(AgentModel::permissionPollInterval);
    EXPECT_FALSE(shows("Telefondan kullanmak için iki izin gerekiyor."));
}

TEST_F(AgentPanelTest, choosesTheWayInFromTheInternetByMouseAndKeys) {
    agent.relay.configure();
    agent.defaults.set("remoteAccess", std::string("on"));
    open();
    EXPECT_TRUE(shows("Eşleşmiş telefonların bu Mac'e her yerden ulaşır."));
    EXPECT_TRUE(shows("İnternete bağlanıyor…"));
    auto* standby = find<QRadioButton>(*panel, "Onaylı");
    ASSERT_TRUE(standby);
    QTest::mouseClick(standby, Qt::LeftButton);
    agent.time.runPending();
    EXPECT_EQ(agent.model->remoteAccess(), RemoteAccess::standby);
    EXPECT_TRUE(shows("Aynı Wi-Fi'dan her zaman bağlanılır."));
    QTest::keyClick(standby, Qt::Key_Right);
    agent.time.runPending();
    EXPECT_EQ(agent.model->remoteAccess(), RemoteAccess::off);
    EXPECT_TRUE(shows("Yalnızca aynı Wi-Fi."));
    EXPECT_FALSE(shows("İnternete bağlanıyor…"));
}

TEST_F(AgentPanelTest, removesAPhoneOnlyWhenConfirmed) {
    const Identity kept = agent.pairedIdentity(), removed = agent.pairedIdentity();
    open();
    reportDevices({{removed.fingerprint(), "Eski telefon", {}, {}},
                   {kept.fingerprint(), "Yeni telefon", {}, {}}});
    EXPECT_TRUE(shows("Henüz bağlanmadı"));
    click("Kaldır: Eski telefon");
    EXPECT_TRUE(shows(QStringLiteral("“\u2068Eski telefon\u2069” kaldırılsın mı?")));
    press(Qt::Key_Escape);  // the safe answer, and the panel stays
    EXPECT_FALSE(find<QPushButton>(*panel, "Vazgeç"));
    EXPECT_TRUE(panel->isVisible());
    click("Kaldır: Eski telefon");
    click("Vazgeç");
    EXPECT_EQ(agent.model->devices().size(), 2u);
    click("Kaldır: Eski telefon");
    press(Qt::Key_Tab);
    press(Qt::Key_Return);
    ASSERT_EQ(agent.model->devices().size(), 1u);
    EXPECT_EQ(agent.model->devices()[0].id, kept.fingerprint());
    click("Hepsini kaldır");
    EXPECT_TRUE(shows("Tüm telefonlar kaldırılsın mı?"));
    press(Qt::Key_Tab);
    press(Qt::Key_Space);
    EXPECT_TRUE(agent.model->devices().empty());
    EXPECT_TRUE(shows("Telefonda Orvel'yi aç"));
}

TEST_F(AgentPanelTest, aQuestionAboutAPhoneThatIsGoneGoesToo) {
    open();
    reportDevices({{"a", "A", {}, {}}, {"b", "B", {}, {}}});
    click("Kaldır: A");
    reportDevices({{"b", "B", {}, {}}});
    EXPECT_FALSE(find<QPushButton>(*panel, "Vazgeç"));
    EXPECT_TRUE(find<QPushButton>(*panel, "Kaldır: B"));
}

TEST_F(AgentPanelTest, switchesSettingsAndFallsBackWhereTheSystemRefuses) {
    open();
    auto* awake = find<QCheckBox>(*panel, "Mac uykuya geçmesin");
    ASSERT_TRUE(awake);
    EXPECT_TRUE(awake->isChecked());
    QTest::mouseClick(awake, Qt::LeftButton);
    EXPECT_FALSE(agent.model->keepAwake());
    auto* atLogin = find<QCheckBox>(*panel, "Mac açılınca başlat");
    ASSERT_TRUE(atLogin);
    EXPECT_TRUE(atLogin->isChecked());
    service.refuses = true;
    atLogin->setFocus();
    QTest::keyClick(atLogin, Qt::Key_Space);
    EXPECT_TRUE(atLogin->isChecked());
    service.registered = false;  // by another program, which the next opening sees
    panel->hide();
    panel->openAsWindow();
    EXPECT_FALSE(atLogin->isChecked());
}

TEST_F(AgentPanelTest, offersAVersionThatIsReady) {
    open();
    FakeUpdateDriver driver;
    Updater updater(driver, agent.notifier);
    connectUpdates(panel->updates(), updater);
    EXPECT_FALSE(find<QPushButton>(*panel, "Yükle"));
    click("Güncellemeleri denetle…");
    driver.setCheckable(false);
    EXPECT_FALSE(find<QPushButton>(*panel, "Güncellemeleri denetle…")->isEnabled());
    driver.become({UpdateState::Checking{}});
    EXPECT_TRUE(shows("Güncellemeler denetleniyor…"));
    driver.callbacks.willHandleShowingUpdate({"1.4", "1.4", {}, 1}, false, false);
    EXPECT_TRUE(shows("Yeni sürüm hazır: 1.4"));
    click("Yükle");
    find<QCheckBox>(*panel, "Güncellemeleri kendiliğinden denetle")->click();
    EXPECT_EQ(driver.calls, (std::vector<std::string>{"check", "install", "automatic off"}));
}

TEST_F(AgentPanelTest, offersNoChoiceOfUpdatesWhereThereCanBeNone) {
    open();
    FakeUpdateDriver driver;
    driver.configured = driver.checkable = driver.automatic = false;
    Updater updater(driver, agent.notifier);
    connectUpdates(panel->updates(), updater);
    EXPECT_FALSE(find<QPushButton>(*panel, "Güncellemeleri denetle…")->isEnabled());
    EXPECT_FALSE(find<QCheckBox>(*panel, "Güncellemeleri kendiliğinden denetle")->isEnabled());
}

// Everything can be reached by Tab, in the order of reading, and has a name to be read out.
TEST_F(AgentPanelTest, isCompleteByKeyboard) {
    agent.relay.configure();
    agent.permissions.accessibilityGranted = false;
    open();
    panel->updates().show({QStringLiteral("1.4"), true, true, {}});
    reportStatus({AgentCore::Status::Connected{"Telefon", false}});
    reportDevices({{"a", "A", {}, {}}});
    QStringList reached;
    int lastTop = -1;
    for (int i = 0; i < 30; ++i) {
        press(Qt::Key_Tab);
        QWidget* now = panel->focusWidget();
        ASSERT_TRUE(now);
        const auto* button = qobject_cast<QAbstractButton*>(now);
        ASSERT_TRUE(button);
        const QString name =
            button->accessibleName().isEmpty() ? button->text() : button->accessibleName();
        if (reached.contains(name)) break;
        reached << name;
        const QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(now);
        ASSERT_TRUE(spoken) << name.toStdString();
        EXPECT_EQ(spoken->text(QAccessible::Name), name);
        EXPECT_THAT(
            (std::array{QAccessible::Button, QAccessible::RadioButton, QAccessible::CheckBox}),
            testing::Contains(spoken->role()))
            << name.toStdString();
        const int top = now->mapTo(panel->findChild<QScrollArea*>()->widget(), QPoint()).y();
        EXPECT_GE(top + now->height(), lastTop) << name.toStdString();
        lastTop = top;
    }
    EXPECT_EQ(reached.join(", ").toStdString(),
              "Bağlantıyı kes, İzin ver: Erişilebilirlik, Açık, Uzaktan erişim geçmişi, "
              "Hepsini kaldır, Kaldır: A, Mac uykuya geçmesin, Mac açılınca başlat, Yükle, "
              "Güncellemeleri kendiliğinden denetle, Güncellemeleri denetle…, "
              "Orvel Agent hakkında, Çık");
    press(Qt::Key_Escape);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(AgentPanelTest, closesWithTheFocusButNotWhileItAsks) {
    open();
    reportDevices({{"a", "A", {}, {}}});
    QCursor::setPos(10, 10);
    click("Kaldır: A");
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other, 20'000));
    EXPECT_TRUE(panel->isVisible());
    panel->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(panel.get(), 20'000));
    click("Vazgeç");
    other.activateWindow();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !panel->isVisible(); }, 20'000));
    panel->openAsWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(panel.get(), 20'000));
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other, 20'000));
    EXPECT_TRUE(panel->isVisible());  // as windows do
}

TEST(PanelPlace, isBesideTheIconAndInsideOfTheScreen) {
    const QRect free(0, 0, 1000, 800);
    const QSize panel(360, 500);
    struct {
        QRect icon;
        QPoint want;
    } const cases[] = {
        {{500, 0, 22, 22}, {331, 28}},      // a bar above
        {{500, 778, 22, 22}, {331, 272}},   // a bar below
        {{978, 778, 22, 22}, {634, 272}},   // in the corner
        {{0, 400, 22, 22}, {6, 6}},         // at the side, hardly room
        {{5000, 5000, 22, 22}, {634, 294}}  // nonsense
    };
    for (const auto& each : cases) {
        EXPECT_EQ(panelPlace(each.icon, panel, free), each.want)
            << each.icon.x() << "," << each.icon.y();
    }
}

TEST(AboutWindow, linksOnlyToASiteThatThereIs) {
    EXPECT_EQ(AboutWindow::credits({}), "iPhone'undan kendi Mac'ine, her yerden.");
    const QString credits = AboutWindow::credits("orvel.example");
    EXPECT_TRUE(credits.contains("her yerden.<br><br><a href=\"https://orvel.example\">Web site<"));
    EXPECT_TRUE(credits.contains("<a href=\"https://orvel.example/support\">Destek<"));
    EXPECT_TRUE(credits.contains("<a href=\"https://orvel.example/privacy\">Gizlilik<"));
}

}  // namespace
}  // namespace orvel
