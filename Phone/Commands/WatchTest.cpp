#include "Phone/PhoneProgramForTests.h"

#include <gmock/gmock.h>
#include <signal.h>

#include "OrvelKit/Base/Json.h"
#include "Phone/VideoForTests.h"
#include "Tests/Support/BackgroundProcess.h"

namespace orvel::phone {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using WatchTest = PhoneProgramTest;

// The number of frames that another program decodes from a film.
int framesOf(const std::string& path) {
    const TemporaryFolder folder;
    BackgroundProcess probe({.command = {"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                                         "stream=nb_read_frames", "-of", "csv=p=0", path},
                             .outputFile = folder / "out"});
    EXPECT_EQ(probe.wait(), 0) << fileText(folder / "out");
    return std::atoi(fileText(folder / "out").c_str());
}

TEST_F(WatchTest, watchDecodesCountsAndRecords) {
    VideoForTests video(320, 240);
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        EXPECT_EQ(end.receive<Hello>().maxPixels, 1280);
        // Pictures may be quicker than the welcome; the first one counts all the same.
        end.send(video.format.encode());
        end.send(video.grey(40, true, nowMicros()).encode());
        end.send({end.welcome()});
        for (int i = 0; i < 9; ++i)
            end.send(video.grey(static_cast<std::uint8_t>(50 + i), false, nowMicros()).encode());
        end.send(video.grey(90, true, nowMicros()).encode());
    });
    know(agent);
    const std::string film = folder / "film.mp4";
    EXPECT_EQ(runAt(agent, {"--json", "watch", "--max-pixels", "1280", "-o", film}), 1);
    EXPECT_THAT(remarked(), HasSubstr("ended the connection"));
    const JsonDocument summary(said());
    const auto number = [&](const char* name) {
        return summary.root().member(name).value().number().value_or(-1);
    };
    EXPECT_EQ(number("frames"), 11);
    EXPECT_EQ(number("keyframes"), 2);
    EXPECT_EQ(number("drops"), 0);
    EXPECT_EQ(number("gaps"), 0);
    EXPECT_EQ(number("width"), 320);
    EXPECT_EQ(number("height"), 240);
    EXPECT_GT(number("firstPictureMs"), 0);
    EXPECT_GE(number("latencyMedianMs"), 0);
    EXPECT_LT(number("latencyMedianMs"), 20'000);
    EXPECT_EQ(summary.root().member("files")->size(), 1u);
    EXPECT_EQ(framesOf(film), 11);
}

TEST_F(WatchTest, watchEndsAfterItsSeconds) {
    VideoForTests video(64, 64);
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.send(video.format.encode());
        end.send(video.grey(40, true, nowMicros()).encode());
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"watch", "--seconds", "0.2"}), 0) << remarked();
    EXPECT_THAT(said(), AllOf(HasSubstr("1 frames in 0."), HasSubstr("keyframes 1, drops 0"),
                              HasSubstr("connect to first picture")));
    EXPECT_THAT(said(), Not(HasSubstr("\x1b"))) << "no live line without a terminal";
}

TEST_F(WatchTest, watchTellsWhatHappensAndCountsTheSound) {
    VideoForTests video(64, 64);
    bool switchesOff = false;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        EXPECT_FALSE(switchesOff && end.receive<Control::Audio>().on);
        end.send(video.format.encode());
        end.send(video.grey(40, true, nowMicros()).encode());
        for (const std::uint32_t sequence : {8u, 9u, 12u})
            end.send(AudioPacket{sequence, Bytes{0xFC, 0xFF, 0xFE}}.encode());
        end.send({Control::FrontApp{"org.x\x1b", "Editor"}});
        end.send({Control::TextFocus{true}});
        end.send({Control::Clipboard{"two\nlines " + std::string(100, 'x')}});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"watch", "--seconds", "0.3"}), 0) << remarked();
    EXPECT_THAT(said(), AllOf(HasSubstr("in front: Editor (org.x\\x1b)\n"),
                              HasSubstr("a text field has the keyboard\n"),
                              HasSubstr("copied: two\\nlines " + std::string(50, 'x') + " ...\n"),
                              HasSubstr("sound: 3 packets, "), HasSubstr(" 2 lost\n")));
    switchesOff = true;
    EXPECT_EQ(runAt(agent, {"--json", "watch", "--seconds", "0.3", "--audio", "off"}), 0);
    EXPECT_THAT(said(), Not(HasSubstr("textFocus")));
    EXPECT_EQ(runAt(agent, {"--json", "watch", "--seconds", "0.3", "--audio", "off", "--events"}),
              0);
    EXPECT_THAT(said(), HasSubstr(R"({"textFocus":{"_0":true}})"
                                  "\n"));
}

TEST_F(WatchTest, aGapIsCountedAndAKeyframeAskedFor) {
    VideoForTests video(64, 64);
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.send(video.format.encode());
        end.send(video.grey(40, true, nowMicros()).encode());
        video.grey(60);  // lost
        end.send(video.grey(80, false, nowMicros()).encode());
        end.receive<Control::RequestKeyframe>();
        end.send(video.grey(100, true, nowMicros()).encode());
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"watch"}), 1);
    EXPECT_THAT(said(), HasSubstr("keyframes 2, drops 1 (1 of them after a gap)"));
}

TEST_F(WatchTest, anInterruptFinishesTheFilm) {
    VideoForTests video(64, 64);
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.send(video.format.encode());
        end.send(video.grey(40, true, nowMicros()).encode());
        video.grey(60);  // lost
        end.send(video.grey(80, false, nowMicros()).encode());
        end.receive<Control::RequestKeyframe>();  // so it watches by now
        kill(getpid(), SIGINT);
        end.waitForEnd();
    });
    know(agent);
    const std::string film = folder / "film.mp4";
    EXPECT_EQ(runAt(agent, {"watch", "-o", film}), 0) << remarked();
    EXPECT_THAT(said(), HasSubstr("film: " + film));
    EXPECT_GE(framesOf(film), 1);
}

TEST_F(WatchTest, anotherDisplayBringsItsOwnSize) {
    VideoForTests left(320, 240), right(640, 480);
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.send(left.format.encode());
        end.send(left.grey(40, true, nowMicros()).encode());
        EXPECT_EQ(end.receive<Control::SelectDisplay>().id, 2u);
        Welcome welcome = end.welcome();
        welcome.displayID = 2;
        end.send({welcome});
        end.send(right.format.encode());
        end.send(right.grey(40, true, nowMicros()).encode());
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"--json", "watch", "--seconds", "0.1", "--display", "2"}), 0)
        << remarked();
    EXPECT_EQ(JsonDocument(said()).root().member("width")->integer(), 640);
    EXPECT_EQ(runAt(agent, {"watch", "--display", "3"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("no display 3"));
}

TEST_F(WatchTest, aFilmThatCannotBeWrittenEndsTheWatching) {
    VideoForTests video(64, 64);
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receive<Hello>();
        end.send({end.welcome()});
        end.send(video.format.encode());
        end.send(video.grey(40, true, nowMicros()).encode());
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"watch", "-o", folder / "no/such.mp4"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("cannot be written"));
}

}  // namespace

}  // namespace orvel::phone
