// An admitted phone drives the whole agent: input, files, sound, clipboard, focus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "OrvelKit/Wire/Files.h"
#include "Tests/Agent/FakeAgent.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

using Events = std::vector<std::string>;

class DriveTest : public testing::Test {
protected:
    DriveTest() {
        agent.start();
        agent.takeNews();
    }

    // Each file frame as "id start name size", "id data bytes", "id end", "id end error".
    static std::vector<std::string> filesText(const std::vector<Frame>& frames) {
        std::vector<std::string> text;
        for (const Frame& frame : frames) {
            if (frame.kind != FrameKind::file) continue;
            const FileFrame file = FileFrame::decode(frame.payload);
            std::string line = std::to_string(file.id);
            if (const auto* start = std::get_if<FileFrame::Start>(&file.step)) {
                line += " start " + start->name + " " + std::to_string(start->size);
            } else if (const auto* data = std::get_if<FileFrame::Data>(&file.step)) {
                line += " data " + std::to_string(data->bytes.size());
            } else {
                const auto& error = std::get<FileFrame::End>(file.step).error;
                line += " end" + (error ? " " + *error : "");
            }
            text.push_back(line);
        }
        return text;
    }
    static int soundPackets(const std::vector<Frame>& frames) {
        return static_cast<int>(std::count_if(frames.begin(), frames.end(), [](auto& frame) {
            return frame.kind == FrameKind::audio;
        }));
    }

    FakeAgent agent;
};

TEST_F(DriveTest, inputOfTheActivePhoneReachesTheDesktop) {
    TestPhone phone = agent.admittedPhone();
    TestPhone stranger = agent.phone();
    stranger.shakeHands();
    const Control input[] = {
        {Control::MoveTo{0.5, 0.5}},
        {Control::Button{MouseButton::left, true, 1}},
        {Control::Move{3, 4}},
        {Control::Button{MouseButton::left, false, 1}},
        {Control::Scroll{0, -2.5, ScrollPhase::changed}},
        {Control::Key{0, true, {}}},
        {Control::Text{"ş\n"}},
        {Control::Pong{1}},  // not a phone's to say
    };
    for (const Control& control : input) {
        stranger.send(control);
        phone.send(control);
    }
    EXPECT_THAT(
        agent.poster.takeEvents(),
        ElementsAre("moved 640,360 by 640,360", "left down 640,360 x1",
                    "leftDragged 643,364 by 3,4", "left up 643,364 x1", "scroll 0,-2 changed",
                    "key 0 down 0x0", "text 1 015f", "key 36 down", "key 36 up"));
}

TEST_F(DriveTest, whatAPhoneHoldsDownIsLetGoOfHoweverItsLinkEnds) {
    const auto hold = [&](TestPhone& phone) {
        phone.send({Control::Button{MouseButton::right, true, 1}});
        phone.send({Control::Key{56, true, {}}});
        agent.poster.takeEvents();
    };
    const Events released{"right up 0,0 x1", "release all"};

    TestPhone gone = agent.admittedPhone();
    hold(gone);
    gone.close();
    EXPECT_EQ(agent.poster.takeEvents(), released);

    TestPhone displaced = agent.admittedPhone();
    hold(displaced);
    TestPhone next = agent.admittedPhone();
    EXPECT_EQ(agent.poster.takeEvents(), released);

    hold(next);
    agent.act([](AgentModel& model) { model.quit([] {}); });
    EXPECT_EQ(agent.poster.takeEvents(), released);
}

TEST_F(DriveTest, numbersThatNoEventCanCarryEndTheLink) {
    const Control unfit[] = {
        {Control::Move{1e300, 0}},
        {Control::MoveTo{0, -1e300}},
        {Control::Scroll{3e9, 0, ScrollPhase::began}},
    };
    for (const Control& control : unfit) {
        TestPhone phone = agent.admittedPhone();
        phone.send(control);
        EXPECT_TRUE(phone.isOver());
        EXPECT_THAT(agent.poster.takeEvents(), ElementsAre("release all"));
        EXPECT_EQ(agent.statusLine(), waitingLine);
    }
}

TEST(Drive, positionsReferToTheDisplayThatIsReallyCaptured) {
    FakeAgent agent;
    agent.displays = {{1, "One", 1280, 720, 1280, true}, {2, "Two", 800, 600, 800, false}};
    agent.poster.displays[2] = {{1280, 0}, 800, 600};
    agent.start();
    TestPhone phone = agent.admittedPhone();
    phone.send({Control::Button{MouseButton::left, true, 1}});
    phone.send({Control::SelectDisplay{2}});
    phone.send({Control::MoveTo{0, 0}});
    phone.send({Control::SelectDisplay{77}});  // there is none: the main display is shown
    phone.send({Control::MoveTo{0, 0}});
    EXPECT_THAT(agent.poster.takeEvents(),
                ElementsAre("left down 0,0 x1", "left up 0,0 x1", "moved 1280,0 by 1280,0",
                            "moved 0,0 by -1280,0"));
}

TEST_F(DriveTest, foldersAreListedAndFilesFetchedWhileThePictureFlows) {
    agent.files.entries["/home"] = {true};
    agent.files.entries["/home/user"] = {true};
    agent.files.entries["/home/user/b.txt"] = {.content = std::string(100'000, 'x')};
    TestPhone phone = agent.admittedPhone();
    phone.send({Control::ListDirectory{"/home"}});
    const auto answers = phone.controls();
    ASSERT_EQ(answers.size(), 1u);
    const auto* listing = answers[0].as<DirectoryListing>();
    ASSERT_TRUE(listing);
    EXPECT_EQ(listing->parent, "/");
    ASSERT_EQ(listing->entries.size(), 1u);
    EXPECT_EQ(listing->entries[0].name, "user");

    phone.send({Control::FetchFile{7, "/home/user/b.txt"}});
    agent.screen->show(50);
    phone.send({Control::FetchFile{8, "/home"}});
    const auto frames = phone.frames();
    EXPECT_THAT(filesText(frames),
                ElementsAre("7 start b.txt 100000", "7 data 65536", "7 data 34464", "7 end",
                            "8 end Klasörler henüz indirilemiyor."));
    EXPECT_TRUE(std::any_of(frames.begin(), frames.end(),
                            [](auto& frame) { return frame.kind == FrameKind::videoFrame; }));
}

TEST_F(DriveTest, aStalledPhonesDownloadWaitsEndsWhenCancelledAndIsForgottenWithItsLink) {
    agent.files.entries["/big"] = {.content = std::string(8 << 20, 'x')};
    TestPhone phone = agent.admittedPhone();
    phone.stall(true);
    phone.send({Control::FetchFile{1, "/big"}});
    agent.time.advance(1s);
    EXPECT_EQ(agent.files.filesOpen, 1);
    phone.send({Control::CancelFetch{1}});
    agent.time.advance(1s);
    EXPECT_EQ(agent.files.filesOpen, 0);
    phone.stall(false);
    const auto text = filesText(phone.frames());
    ASSERT_GT(text.size(), 30u);
    EXPECT_LT(text.size(), 36u);  // 2 MiB ahead, and not the whole
    EXPECT_EQ(text.back(), "1 end İptal edildi.");

    phone.stall(true);
    phone.send({Control::FetchFile{2, "/big"}});
    EXPECT_EQ(agent.files.filesOpen, 1);
    phone.close();
    agent.time.advance(1s);
    EXPECT_EQ(agent.files.filesOpen, 0);
}

TEST_F(DriveTest, moreRequestsThanAPhoneInItsSensesMakesEndTheLink) {
    agent.files.entries["/a"] = {.content = "x"};
    TestPhone phone = agent.admittedPhone();
    Bytes flood;
    for (std::uint32_t id = 0; id < 5'000; ++id)
        append(flood, phone.sealed({Control::FetchFile{id, "/a"}}));
    phone.stall(true);
    phone.sendRaw(flood);
    EXPECT_TRUE(phone.isOver());
    agent.time.advance(1s);
    EXPECT_EQ(agent.files.filesOpen, 0);
}

TEST_F(DriveTest, soundFollowsTheWelcomeAndThePhonesWish) {
    TestPhone phone = agent.admittedPhone();
    agent.screen->sound(1'920);
    EXPECT_EQ(soundPackets(phone.frames()), 2);
    phone.send({Control::Audio{false}});
    agent.screen->sound(1'920);
    EXPECT_EQ(soundPackets(phone.frames()), 0);
    TestPhone next = agent.admittedPhone();  // on again for everybody who is admitted
    agent.screen->sound(960);
    EXPECT_EQ(soundPackets(next.frames()), 1);
}

TEST_F(DriveTest, theClipboardGoesBothWaysWithoutEcho) {
    TestPhone phone = agent.admittedPhone();
    agent.takeNews();
    phone.send({Control::Clipboard{"telefondan"}});
    EXPECT_THAT(agent.pasteboard.written, ElementsAre("telefondan"));
    EXPECT_THAT(agent.takeNews(), ElementsAre(R"({"clipboard":"telefondan"})"));
    agent.time.advance(3s);
    EXPECT_THAT(phone.controls(),
                testing::Not(Contains(Control{Control::Clipboard{"telefondan"}})));

    for (int i = 0; i < 2; ++i) {  // the same text again counts
        agent.act([&](auto&) { agent.pasteboard.copy("buradan"); });
        agent.time.advance(1s);
        EXPECT_EQ(phone.controls(), std::vector<Control>{{Control::Clipboard{"buradan"}}});
    }
    phone.close();
    agent.act([&](auto&) { agent.pasteboard.copy("yalnızken"); });
    agent.time.advance(5s);
    TestPhone next = agent.admittedPhone();
    agent.time.advance(5s);
    EXPECT_THAT(next.controls(), testing::Not(Contains(Control{Control::Clipboard{"yalnızken"}})));
}

TEST_F(DriveTest, eachPhoneHearsWhatIsInFrontAndWhetherATextHasTheFocus) {
    agent.workspace.front = {"org.gnome.TextEditor", "Metin Düzenleyici"};
    agent.textFocus.element = TextFocus::Element{"AXTextArea", true};
    const std::vector<Control> first{
        {Control::FrontApp{"org.gnome.TextEditor", "Metin Düzenleyici"}}};
    const std::vector<Control> focused{{Control::TextFocus{true}}};
    EXPECT_FALSE(agent.workspace.isObserved());
    for (int i = 0; i < 2; ++i) {  // the second takes over from the first
        TestPhone phone = agent.phone(agent.pairedIdentity());
        phone.shakeHands();
        phone.send({phone.hello()});
        auto heard = phone.controls();
        ASSERT_EQ(heard.size(), 2u);
        EXPECT_TRUE(heard[0].as<Welcome>());
        EXPECT_EQ(heard[1], first[0]);
        agent.time.advance(300ms);
        EXPECT_EQ(phone.controls(), focused);
        agent.act([&](auto&) { agent.workspace.activate({"", "xterm"}); });
        EXPECT_EQ(phone.controls(), (std::vector<Control>{{Control::FrontApp{"", "xterm"}}}));
        agent.act([&](auto&) {
            agent.workspace.front = {"org.gnome.TextEditor", "Metin Düzenleyici"};
        });
        if (i == 1) phone.close();
    }
    EXPECT_FALSE(agent.workspace.isObserved());
    EXPECT_FALSE(agent.textFocus.isObserved);
}

}  // namespace
}  // namespace orvel
