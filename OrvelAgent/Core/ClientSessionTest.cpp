#include "OrvelAgent/Core/ClientSession.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Core/TestPhone.h"
#include "OrvelKit/Wire/Files.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

// One session and its phone, without an agent around them.
class ClientSessionTest : public testing::Test {
protected:
    ClientSessionTest() : queue("orvel.agent", time), phone(makePhone()) {}

    TestPhone makePhone() {
        auto wire = std::make_shared<FakeWire>();
        queue.post([this, wire] {
            session = std::make_shared<ClientSession>(
                queue, std::make_unique<FakeConnection>(queue, wire), agent);
            session->onSecured = [this] { ++secured; };
            session->onControl = [this](const Control& control) { heard.push_back(control); };
            session->onEnd = [this] { ++ends; };
            session->start();
        });
        return TestPhone(time, wire);
    }

    void onQueue(std::function<void()> action) {
        queue.post(std::move(action));
        time.runPending();
    }
    void admit() {
        phone.shakeHands();
        onQueue([this] { session->setAuthenticated(true); });
    }
    FrameBuffer video(bool isKeyframe, std::size_t bytes = 100) {
        return VideoFrame::encode(isKeyframe, 0, Bytes(bytes));
    }

    VirtualTime time;
    SerialQueue queue;
    const Identity agent{PrivateKey::generate()};
    std::shared_ptr<ClientSession> session;
    int secured = 0, ends = 0;
    std::vector<Control> heard;
    TestPhone phone;
};

TEST_F(ClientSessionTest, bothEndsDeriveTheSameCodeAndTalk) {
    phone.shakeHands();
    EXPECT_EQ(secured, 1);
    onQueue([&] {
        EXPECT_EQ(session->pairingCode(), phone.code);
        EXPECT_EQ(session->deviceID(), phone.identity.fingerprint());
        session->sendControl({Control::Pong{7}});
    });
    phone.send({Control::Ping{7}});
    EXPECT_EQ(heard, std::vector<Control>{{Control::Ping{7}}});
    EXPECT_EQ(phone.controls(), std::vector<Control>{{Control::Pong{7}}});
}

TEST_F(ClientSessionTest, revealAndSealedControlsMayComeInOneRead) {
    Bytes both = phone.revealFrame();
    append(both, phone.sealed({Control::Ping{1}}));
    append(both, phone.sealed({Control::Ping{2}}));
    phone.sendRaw(both);
    EXPECT_EQ(heard, (std::vector<Control>{{Control::Ping{1}}, {Control::Ping{2}}}));
}

TEST_F(ClientSessionTest, aSilentPhoneIsDroppedAfterTenSeconds) {
    time.advance(9999ms);
    EXPECT_EQ(ends, 0);
    time.advance(1ms);
    EXPECT_EQ(ends, 1);
    EXPECT_TRUE(phone.wire->agentClosed);
}

TEST_F(ClientSessionTest, aSecuredPhoneThatIsNotAdmittedIsDroppedAfterThreeMinutes) {
    time.advance(9s);
    phone.shakeHands();
    time.advance(179'999ms);
    EXPECT_EQ(ends, 0);
    time.advance(1ms);
    EXPECT_EQ(ends, 1);
}

TEST_F(ClientSessionTest, anAdmittedPhoneMayBeSilent) {
    admit();
    time.advance(1h);
    EXPECT_EQ(ends, 0);
}

TEST_F(ClientSessionTest, nonsenseBeforeTheHandshakeEndsItAtTheFifthByte) {
    const struct {
        const char* name;
        Bytes bytes;
        bool ends;
    } rows[] = {
        {"four bytes tell nothing yet", {5, 0, 0, 0}, false},
        {"longest handshake message", {5, 0, 0, 0, 64}, false},
        {"one byte more", {5, 0, 0, 0, 65}, true},
        {"unknown kind", {0, 0, 0, 0, 1}, true},
        {"a control before the seal", {1, 0, 0, 0, 2}, true},
        {"a sealed frame before the handshake", {6, 0, 0, 0, 16}, true},
        {"a commit of the wrong type", Framing::encode(FrameKind::handshake, Bytes(33, 2)), true},
        {"a commit too short", Framing::encode(FrameKind::handshake, Bytes(32, 1)), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ends = 0;
        TestPhone other = makePhone();
        other.sendRaw(row.bytes);
        EXPECT_EQ(ends, row.ends ? 1 : 0);
        EXPECT_EQ(other.isOver(), row.ends);
        EXPECT_TRUE(other.wire->fromAgent.empty());
    }
}

TEST_F(ClientSessionTest, nonsenseAfterTheHandshakeEndsIt) {
    struct Row {
        const char* name;
        std::function<Bytes(TestPhone&)> bytes;
        bool ends;
    };
    const Row rows[] = {
        {"a third handshake frame",
         [](TestPhone&) { return Framing::encode(FrameKind::handshake, Bytes(64)); }, true},
        {"an unsealed control",
         [](TestPhone&) { return Framing::encodeControl({Control::Ping{1}}); }, true},
        {"a box that does not open",
         [](TestPhone&) { return Framing::encode(FrameKind::sealed, Bytes(40)); }, true},
        {"a box without room for a tag",
         [](TestPhone&) { return Framing::encode(FrameKind::sealed, Bytes(15)); }, true},
        {"JSON that is no control",
         [](TestPhone& p) { return p.sealed(Framing::encode(FrameKind::control, bytesOf("{}"))); },
         true},
        {"an unknown kind inside the seal",
         [](TestPhone& p) {
             return p.sealed(Bytes{8, 0, 0, 0, 0});
         },
         true},
        {"a known kind that an agent has no use for",
         [](TestPhone& p) { return p.sealed(Framing::encode(FrameKind::audio, Bytes(9))); }, false},
        {"an empty box", [](TestPhone& p) { return p.sealed(Bytes{}); }, false},
        {"a sealed frame above 64 KiB from a stranger",
         [](TestPhone&) {
             return Bytes{6, 0, 1, 0, 1};
         },
         true},
        {"an inner frame above 64 KiB from a stranger",
         [](TestPhone& p) {
             return p.sealed(Bytes{1, 0, 1, 0, 1});
         },
         true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ends = 0;
        TestPhone other = makePhone();
        other.shakeHands();
        other.sendRaw(row.bytes(other));
        EXPECT_EQ(ends, row.ends ? 1 : 0);
    }
}

TEST_F(ClientSessionTest, innerFramesMayBeSplitOverBoxesAndPackedIntoOne) {
    admit();
    Bytes frames = Framing::encodeControl({Control::Ping{1}});
    append(frames, Framing::encodeControl({Control::Ping{2}}));
    const std::size_t cut = frames.size() / 2 + 1;
    phone.sendRaw(phone.sealed(ByteView(frames).first(cut)));
    phone.sendRaw(phone.sealed(ByteView(frames).subspan(cut)));
    EXPECT_EQ(heard, (std::vector<Control>{{Control::Ping{1}}, {Control::Ping{2}}}));
}

TEST_F(ClientSessionTest, nothingButTheHandshakeLeavesBeforeTheSeal) {
    bool completed = false;
    onQueue([&] {
        session->sendControl({Control::Pong{1}});
        session->sendAudio({1, {1}});
        session->sendFile(FileFrame{1, FileFrame::End{}}.encode(), [&] { completed = true; });
    });
    EXPECT_TRUE(phone.wire->fromAgent.empty());
    EXPECT_FALSE(completed);
    phone.shakeHands();
    EXPECT_TRUE(phone.frames().empty());
}

TEST_F(ClientSessionTest, aRejectionIsReadBeforeTheEndAndNothingIsHeardAfterIt) {
    phone.shakeHands();
    session->onControl = [&](const Control& control) {
        heard.push_back(control);
        session->reject(Rejection::wrongPin);
    };
    Bytes guesses = phone.sealed({phone.hello()});
    append(guesses, phone.sealed({phone.helloWithPin()}));
    phone.sendRaw(guesses);
    EXPECT_EQ(heard.size(), 1u);
    EXPECT_EQ(phone.controls(), std::vector<Control>{{Control::Rejected{Rejection::wrongPin}}});
    EXPECT_TRUE(phone.wire->agentFinished);
    EXPECT_EQ(ends, 1);
}

TEST_F(ClientSessionTest, aRejectionThatNobodyReadsDoesNotKeepTheLink) {
    admit();
    phone.stall(true);
    onQueue([&] { session->reject(Rejection::permissionsMissing); });
    time.advance(ClientSession::rejectionTime);
    EXPECT_EQ(ends, 1);
}

TEST_F(ClientSessionTest, theNinthAudioPacketOutstandingIsDropped) {
    admit();
    phone.stall(true);
    onQueue([&] {
        for (std::uint32_t i = 0; i < 12; ++i)
            session->sendAudio({i, {1}});
    });
    phone.stall(false);
    EXPECT_EQ(phone.frames().size(), 8u);
    onQueue([&] { session->sendAudio({12, {1}}); });
    EXPECT_EQ(phone.frames().size(), 1u);
}

TEST_F(ClientSessionTest, fileBytesCountUntilTheyAreSent) {
    admit();
    phone.stall(true);
    int completed = 0;
    onQueue([&] {
        session->sendFile(FileFrame{1, FileFrame::Data{Bytes(1000)}}.encode(),
                          [&] { ++completed; });
        EXPECT_EQ(session->fileBacklog(), 1005);
    });
    EXPECT_EQ(completed, 0);
    phone.stall(false);
    EXPECT_EQ(completed, 1);
    onQueue([&] { EXPECT_EQ(session->fileBacklog(), 0); });
}

TEST_F(ClientSessionTest, framesLeaveInClassesAndOpenInOrder) {
    admit();
    phone.stall(true);
    onQueue([&] {
        session->sendFile(FileFrame{1, FileFrame::End{}}.encode(), {});  // on its way already
        session->sendFile(FileFrame{2, FileFrame::End{}}.encode(), {});
        session->sendVideo(VideoFormat{{{1}}}.encode(), true, {});
        session->sendVideo(video(true), true, {});
        session->sendAudio({0, {1}});
        session->sendControl({Control::Pong{1}});
    });
    phone.stall(false);
    std::vector<FrameKind> kinds;
    for (const auto& frame : phone.frames())
        kinds.push_back(frame.kind);
    EXPECT_EQ(kinds, (std::vector{FrameKind::file, FrameKind::control, FrameKind::audio,
                                  FrameKind::videoFormat, FrameKind::videoFrame, FrameKind::file}));
}

TEST_F(ClientSessionTest, aPhoneThatAsksButNeverReadsIsEnded) {
    admit();
    phone.stall(true);
    const std::string large(1024 * 1024, 'x');
    onQueue([&] {
        for (int i = 0; i < 40; ++i)
            session->sendControl({Control::Clipboard{large}});
    });
    EXPECT_EQ(ends, 1);
}

TEST_F(ClientSessionTest, thePhonesEndIsReportedOnceAndClosingAgainIsHarmless) {
    admit();
    phone.close();
    EXPECT_EQ(ends, 1);
    onQueue([&] {
        session->close();
        session->sendControl({Control::Pong{1}});
    });
    EXPECT_EQ(ends, 1);
}

}  // namespace
}  // namespace orvel
