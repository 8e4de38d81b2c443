// The panel in each of its states: nothing is cut off. ORVEL_PICTURES=DIR leaves a picture of each
// in DIR, to be looked at.

#include <QAbstractButton>
#include <QDir>
#include <QPainter>
#include <QPalette>
#include <algorithm>
#include <cmath>
#include <map>

#include "OrvelAgent/App/LoginItem.h"
#include "OrvelAgent/App/Panel/AboutWindow.h"
#include "OrvelAgent/App/Panel/Disclosure.h"
#include "OrvelAgent/App/Panel/PairingWindow.h"
#include "OrvelAgent/App/Panel/TextLabel.h"
#include "OrvelAgent/App/Panel/TrayIcon.h"
#include "OrvelAgent/App/Panel/UpdatesSection.h"
#include "OrvelAgent/Platform/Fake/FakeLoginService.h"
#include "Tests/Panel/PanelDesk.h"

namespace orvel {
namespace {

using namespace std::chrono_literals;
using Status = AgentCore::Status;

constexpr WallTime day{std::chrono::seconds(1'763'738'460)};  // 2025-11-21 15:21

QPalette darkPalette() {
    const QColor window(0x24, 0x26, 0x2B), text(0xEC, 0xEE, 0xF2);
    QPalette palette(text, window);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::Base, window.darker(115));
    palette.setColor(QPalette::Mid, QColor(0x55, 0x59, 0x61));
    return palette;
}

std::vector<PairedDevice> phones(int count) {
    const std::string names[] = {
        "Ayşe'nin iPhone'u", "هاتف أحمد الشخصي (2)", "טלפון",
        "Bu kadar uzun bir adı olan telefon bir satıra hiçbir zaman sığmaz ve kısaltılır",
        "<img src=x>\u202Eters\nsatır"};
    std::vector<PairedDevice> result;
    for (int i = 0; i < count; ++i) {
        result.push_back({"id" + std::to_string(i), names[i % 5], day - i * 26h,
                          i % 3 == 1 ? std::nullopt : std::optional(day - i * 26h + 3h)});
    }
    return result;
}

class PanelPicturesTest : public PanelTest {
protected:
    void startAgent() {
        agent.options.name = "Selin'in Mac'i";
        agent.relay.configure();
        agent.defaults.set("remoteAccess", std::string("standby"));
        agent.start();
        agent.relay.join();
        agent.time.runPending();
        reportStatus({Status::Waiting{}});
    }

    // Shows the model as it is, judges that and keeps the picture.
    void take(const QString& name, const std::function<void(AgentPanel&)>& prepare = nullptr,
              qreal scale = 1) {
        AgentPanel panel(*agent.model, &login);
        panel.updates().show({std::nullopt, true, true, {}});
        panel.openAt(QRect(1200, 978, 22, 22));
        QCoreApplication::processEvents();
        if (prepare) prepare(panel);
        agent.time.runPending();
        QCoreApplication::processEvents();
        judge(panel, name);
        keep(panel, name, scale);
    }

    static void judge(const QWidget& window, const QString& name) {
        EXPECT_LE(window.height(), 1000 - 12) << name.toStdString();
        for (const auto* label : window.findChildren<TextLabel*>()) {
            if (!label->isVisible()) continue;
            if (label->hasHeightForWidth()) {
                EXPECT_GE(label->height(), label->heightForWidth(label->width()))
                    << name.toStdString() << ": " << label->text().toStdString();
            }
            const int right = label->mapTo(&window, QPoint(label->width(), 0)).x();
            EXPECT_LE(right, window.width()) << label->text().toStdString();
        }
        for (const auto* button : window.findChildren<QAbstractButton*>()) {
            if (button->isVisible()) {
                EXPECT_GE(button->width(), button->minimumSizeHint().width())
                    << name.toStdString() << ": " << button->text().toStdString();
            }
        }
    }

    // In its 256 most frequent colours, which nobody sees but in the size of the file.
    static QImage inItsColours(const QImage& picture) {
        std::map<QRgb, int> counts;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x)
                ++counts[picture.pixel(x, y)];
        }
        std::vector<std::pair<int, QRgb>> ranked;
        for (const auto& [colour, count] : counts)
            ranked.emplace_back(-count, colour);
        std::sort(ranked.begin(), ranked.end());
        QList<QRgb> table;
        for (std::size_t i = 0; i < std::min<std::size_t>(ranked.size(), 256); ++i)
            table << ranked[i].second;
        return picture.convertToFormat(QImage::Format_Indexed8, table);
    }

    static void keep(QWidget& window, const QString& name, qreal scale) {
        const QString folder = qEnvironmentVariable("ORVEL_PICTURES");
        if (folder.isEmpty()) return;
        QImage picture(window.size() * scale, QImage::Format_RGB32);
        picture.setDevicePixelRatio(scale);
        window.render(&picture);
        ASSERT_TRUE(QDir().mkpath(folder));
        constexpr int smallest = 0;  // the file, losing nothing more
        ASSERT_TRUE(inItsColours(picture).save(folder + u'/' + name + QStringLiteral(".png"), "PNG",
                                               smallest));
    }

    FakeLoginService service;
    FakeDefaults loginDefaults;
    LoginItem login{service, loginDefaults};
};

TEST_F(PanelPicturesTest, nothingIsCutOffInAnyState) {
    startAgent();
    reportStatus({Status::Starting{}});
    take("starting");
    reportStatus({Status::Waiting{}});
    take("waiting");
    report([](AgentCore& core) { core.onRelay(false); });
    take("relay-offline");
    report([](AgentCore& core) { core.onRelay(true); });
    reportDevices(phones(1));
    reportStatus({Status::Connected{"Ayşe'nin iPhone'u", false}});
    take("connected");
    take("connected-2x", nullptr, 2);
    reportStatus({Status::Connected{"Ayşe'nin iPhone'u", true}});
    report(
        [&](AgentCore& core) { core.onUnlock("Ayşe'nin iPhone'u", agent.time.wallTime() + 1h); });
    take("connected-internet-unlocked");
    reportStatus({Status::Connected{phones(4)[3].name, true}});
    take("connected-long-name");
    reportStatus({Status::Waiting{}});
    report([&](AgentCore& core) { core.onUnlock("Ayşe'nin iPhone'u", std::nullopt); });
    take("history", [](AgentPanel& panel) { panel.findChild<Disclosure*>()->click(); });
    reportStatus({Status::Failed{
        "ağ kapısı açılamadı: bu adres başka bir program tarafından kullanılıyor"}});
    take("failed");
    reportStatus({Status::Waiting{}});
    reportCode("123456");
    take("code");
    reportCode(std::nullopt);
    agent.permissions.screenRecordingGranted = false;
    agent.time.advance(AgentModel::permissionPollInterval);
    take("permissions");
    agent.permissions.screenRecordingGranted = true;
    agent.time.advance(AgentModel::permissionPollInterval);
    take("update", [](AgentPanel& panel) {
        panel.updates().show({QStringLiteral("1.4"), true, true, {}});
    });
    take("no-updates", [](AgentPanel& panel) {
        panel.updates().show({std::nullopt, false, false, {}, false});
    });
    reportDevices(phones(5));
    take("remove-question",
         [](AgentPanel& panel) { find<QAbstractButton>(panel, "Kaldır: هاتف")->click(); });
    reportDevices(phones(20));
    take("devices-20");
}

TEST_F(PanelPicturesTest, norInTheDark) {
    startAgent();
    const QPalette light = QApplication::palette();
    QApplication::setPalette(darkPalette());
    reportDevices(phones(3));
    reportStatus({Status::Connected{"Ayşe'nin iPhone'u", true}});
    take("dark-connected");
    reportStatus({Status::Failed{"ağ kapısı açılamadı"}});
    reportCode("123456");
    agent.permissions.accessibilityGranted = false;
    agent.time.advance(AgentModel::permissionPollInterval);
    take("dark-failed-code-permissions");
    QApplication::setPalette(light);
}

// As the Web Content Accessibility Guidelines 2.1 count it; 3 is enough for symbols.
double contrast(QColor a, QColor b) {
    const auto luminance = [](const QColor& colour) {
        const auto linear = [](double part) {
            return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
               0.0722 * linear(colour.blueF());
    };
    const auto [darker, lighter] = std::minmax({luminance(a), luminance(b)});
    return (lighter + 0.05) / (darker + 0.05);
}

TEST_F(PanelPicturesTest, theIconStandsOutOnEveryBar) {
    using State = TrayIcon::State;
    const QColor light(0xE6, 0xE6, 0xE6), dark(0x22, 0x24, 0x28);
    const std::vector states{State::starting, State::waiting, State::connected, State::failed};
    for (const State state : states) {
        const QImage icon = TrayIcon::picture(state, true).pixmap(QSize(44, 44), 1).toImage();
        const QColor field = icon.pixelColor(22, 2);  // above the drawing
        for (const QColor& other : {light, dark, QColor(Qt::white)})
            EXPECT_GE(contrast(field, other), 3) << static_cast<int>(state) << other.red();
    }

    struct Bars : QWidget {
        void paintEvent(QPaintEvent*) override {
            QPainter painter(this);
            for (int row = 0; row < 3; ++row) {
                painter.fillRect(0, row * 40, width(), 40, std::array{light, dark, light}[row]);
                for (int column = 0; column < 4; ++column) {
                    const QIcon icon = TrayIcon::picture(states[column], row < 2);
                    icon.paint(&painter, column * 60 + 6, row * 40 + 9, 22, 22);
                    icon.paint(&painter, column * 60 + 36, row * 40 + 12, 16, 16);
                }
            }
        }
        std::vector<State> states;
        QColor light, dark;
    } bars;
    bars.states = states;
    bars.light = light;
    bars.dark = dark;
    bars.setFixedSize(4 * 60, 3 * 40);
    keep(bars, "icon", 2);
}

TEST_F(PanelPicturesTest, norInTheOtherWindows) {
    const QString name = QString::fromStdString(phones(4)[3].name);
    for (const auto& [picture, code, phone] :
         {std::tuple("pairing", std::optional<QString>("123456"), std::optional<QString>()),
          std::tuple("pairing-asked", std::optional<QString>(), std::optional<QString>(name))}) {
        PairingWindow window;
        window.display(code, phone);
        QCoreApplication::processEvents();
        judge(window, picture);
        keep(window, picture, 1);
    }
    AboutWindow about(QStringLiteral("0.1.0"), QStringLiteral("orvel.example"));
    about.show();
    QCoreApplication::processEvents();
    judge(about, "about");
    keep(about, "about", 1);
}

}  // namespace
}  // namespace orvel
