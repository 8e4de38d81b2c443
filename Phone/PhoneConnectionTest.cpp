#include "Phone/PhoneConnection.h"

#include <gtest/gtest.h>

#include <atomic>

#include "Phone/AgentForTests.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using Reason = PhoneConnection::Closed::Reason;

std::optional<Reason> reasonOf(const std::optional<PhoneConnection::Closed>& closed) {
    return closed ? std::optional(closed->reason) : std::nullopt;
}

Identity newIdentity() {
    return {PrivateKey::generate()};
}

// A phone that is connected to `agent` and has run the handshake.
struct SecuredPhone {
    explicit SecuredPhone(const AgentForTests& agent) : phone(newIdentity()) {
        EXPECT_TRUE(phone.connect("127.0.0.1", agent.port()));
        EXPECT_TRUE(phone.secure()) << (phone.closed() ? phone.closed()->describe() : "");
    }
    PhoneConnection phone;
};

TEST(PhoneConnection, bothEndsDeriveTheSameCodeAndKnowEachOther) {
    std::string code;
    Bytes phoneKey;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        code = end.code;
        phoneKey = end.phoneKey;
        if (end.receive<Hello>().pin == end.code) end.send({Control::Pong{1}});
        end.waitForEnd();
    });
    SecuredPhone secured(agent);
    PhoneConnection& phone = secured.phone;
    EXPECT_EQ(phone.agentID(), agent.deviceID());
    EXPECT_EQ(phone.agentKey(), agent.identity.publicKey());
    EXPECT_EQ(phone.code().size(), 6u);
    phone.send({phone.hello("Test", phone.code())});
    EXPECT_TRUE(phone.waitFor<Control::Pong>());
    phone.close();
    agent.finish();
    EXPECT_EQ(phone.code(), code);
    EXPECT_EQ(phone.identity().publicKey(), phoneKey);
}

TEST(PhoneConnection, eachKindOfFrameBecomesItsEventInOrder) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        end.send({Control::Pong{7}});
        end.send(VideoFormat{{Bytes{0x67}, Bytes{0x68}}}.encode());
        end.send(VideoFrame{true, 5, Bytes{1, 2, 3}}.encode());
        end.send(VideoFrame{false, 6, Bytes{}}.encode());
        end.send(AudioPacket{9, Bytes{4}}.encode());
        end.send(FileFrame{3, FileFrame::Data{Bytes{8}}}.encode());
        end.send({Control::Clipboard{"text"}});
    });
    SecuredPhone secured(agent);
    PhoneConnection& phone = secured.phone;
    const auto take = [&] { return phone.next(10s).value().value; };
    EXPECT_EQ(std::get<Control>(take()), Control{Control::Pong{7}});
    EXPECT_EQ(std::get<VideoFormat>(take()), (VideoFormat{{Bytes{0x67}, Bytes{0x68}}}));
    EXPECT_EQ(std::get<VideoFrame>(take()), (VideoFrame{true, 5, Bytes{1, 2, 3}}));
    EXPECT_EQ(std::get<VideoFrame>(take()), (VideoFrame{false, 6, Bytes{}}));
    EXPECT_EQ(std::get<AudioPacket>(take()), (AudioPacket{9, Bytes{4}}));
    EXPECT_EQ(std::get<FileFrame>(take()), (FileFrame{3, FileFrame::Data{Bytes{8}}}));
    EXPECT_EQ(std::get<Control>(take()), Control{Control::Clipboard{"text"}});
    EXPECT_EQ(std::get<PhoneConnection::Closed>(take()).reason, Reason::closedByAgent);
    EXPECT_FALSE(phone.next(10s));
    const auto counts = phone.counts();
    EXPECT_EQ(counts.controls, 2u);
    EXPECT_EQ(counts.videoFormats, 1u);
    EXPECT_EQ(counts.videoFrames, 2u);
    EXPECT_EQ(counts.keyframes, 1u);
    EXPECT_EQ(counts.audioPackets, 1u);
    EXPECT_EQ(counts.fileFrames, 1u);
}

TEST(PhoneConnection, innerFramesMayBeSplitOverBoxesAndPackedIntoOne) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        Bytes stream = Framing::encodeControl({Control::Pong{1}});
        append(stream, Framing::encodeControl({Control::Pong{2}}));
        append(stream, Framing::encodeControl({Control::Pong{3}}));
        const ByteView all(stream);
        end.sendSealed(all.first(2));
        end.sendSealed({});
        end.sendSealed(all.subspan(2));
        end.waitForEnd();
    });
    SecuredPhone secured(agent);
    for (std::uint64_t value = 1; value <= 3; ++value) {
        EXPECT_EQ(secured.phone.waitFor<Control::Pong>(), Control::Pong{value});
    }
}

struct NonsenseRow {
    const char* name;
    std::function<void(AgentEnd&)> script;
    Reason want;
};

const NonsenseRow handshakeRows[] = {
    {"ends sending at once",
     [](AgentEnd& end) {
         end.stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send);
         end.waitForEnd();
     },
     Reason::closedByAgent},
    {"closes after the commit", [](AgentEnd& end) { end.receiveFrame(); }, Reason::closedByAgent},
    {"closes in the middle of a header",
     [](AgentEnd& end) {
         end.receiveFrame();
         end.sendRaw(Bytes{5, 0, 0});
     },
     Reason::closedByAgent},
    {"keys cut short",
     [](AgentEnd& end) {
         end.receiveFrame();
         end.sendFrame(FrameKind::handshake, Bytes(63));
         end.waitForEnd();
     },
     Reason::nonsense},
    {"keys of small order",
     [](AgentEnd& end) {
         end.receiveFrame();
         end.sendFrame(FrameKind::handshake, Bytes(64));
         end.waitForEnd();
     },
     Reason::nonsense},
    {"no frame at all",
     [](AgentEnd& end) {
         end.sendRaw(bytesOf("HTTP/1.1 400 Bad Request\r\n"));
         end.waitForEnd();
     },
     Reason::nonsense},
    {"a control before the handshake",
     [](AgentEnd& end) {
         end.sendRaw(Framing::encodeControl({Control::Pong{1}}));
         end.waitForEnd();
     },
     Reason::nonsense},
    {"silence",
     [](AgentEnd& end) {
         end.receiveFrame();
         end.waitForEnd();
     },
     Reason::timedOut},
};

TEST(PhoneConnection, aHandshakeThatGoesWrongEndsWithItsReason) {
    for (const auto& row : handshakeRows) {
        SCOPED_TRACE(row.name);
        AgentForTests agent(row.script);
        PhoneConnection phone(newIdentity());
        ASSERT_TRUE(phone.connect("127.0.0.1", agent.port()));
        const auto patience = row.want == Reason::timedOut ? Duration(200ms) : Duration(20s);
        EXPECT_FALSE(phone.secure(patience));
        EXPECT_EQ(reasonOf(phone.closed()), row.want);
        EXPECT_EQ(phone.code(), "");
        EXPECT_EQ(phone.agentID(), "");
    }
}

const NonsenseRow sealedRows[] = {
    {"closes", [](AgentEnd&) {}, Reason::closedByAgent},
    {"a frame that is not sealed",
     [](AgentEnd& end) { end.sendRaw(Framing::encodeControl({Control::Pong{1}})); },
     Reason::nonsense},
    {"a second handshake", [](AgentEnd& end) { end.sendFrame(FrameKind::handshake, Bytes(64)); },
     Reason::nonsense},
    {"a box without room for its tag",
     [](AgentEnd& end) { end.sendFrame(FrameKind::sealed, Bytes(15)); }, Reason::nonsense},
    {"a damaged box",
     [](AgentEnd& end) {
         Bytes box = end.session->seal(Framing::encodeControl({Control::Pong{1}}));
         box[3] ^= 1;
         end.sendFrame(FrameKind::sealed, box);
     },
     Reason::nonsense},
    {"a box left out",
     [](AgentEnd& end) {
         end.session->seal({});
         end.send({Control::Pong{1}});
     },
     Reason::nonsense},
    {"an unknown kind inside the seal",
     [](AgentEnd& end) {
         end.sendSealed(Bytes{9, 0, 0, 0, 0});
     },
     Reason::nonsense},
    {"a control that is no JSON",
     [](AgentEnd& end) { end.sendSealed(Framing::encode(FrameKind::control, Bytes{'{'})); },
     Reason::nonsense},
    {"a video frame cut short",
     [](AgentEnd& end) { end.sendSealed(Framing::encode(FrameKind::videoFrame, Bytes(8))); },
     Reason::nonsense},
};

TEST(PhoneConnection, nonsenseInsideTheSealEndsTheConnection) {
    for (const auto& row : sealedRows) {
        SCOPED_TRACE(row.name);
        AgentForTests agent([&](AgentEnd& end) {
            end.secure();
            row.script(end);
            if (row.want == Reason::nonsense) end.waitForEnd();
        });
        SecuredPhone secured(agent);
        EXPECT_EQ(reasonOf(secured.phone.waitClosed()), row.want);
    }
}

TEST(PhoneConnection, nobodyListeningIsSaidAtOnce) {
    std::uint16_t port = 0;
    {
        AgentForTests gone([](AgentEnd&) {});
        port = gone.port();
    }
    PhoneConnection phone(newIdentity());
    EXPECT_FALSE(phone.connect("127.0.0.1", port));
    EXPECT_EQ(reasonOf(phone.closed()), Reason::notConnected);
    EXPECT_FALSE(phone.secure());
    phone.send({Control::Ping{1}});
}

TEST(PhoneConnection, waitForStopsAtItsTimeAndAtTheEnd) {
    AgentForTests agent([](AgentEnd& end) {
        end.secure();
        end.receiveControl();
    });
    SecuredPhone secured(agent);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(secured.phone.waitFor<Welcome>(20ms));
    EXPECT_FALSE(secured.phone.closed());
    secured.phone.send({Control::RequestKeyframe{}});
    EXPECT_FALSE(secured.phone.waitFor<Welcome>(20s));
    EXPECT_EQ(reasonOf(secured.phone.closed()), Reason::closedByAgent);
    EXPECT_EQ(reasonOf(secured.phone.waitClosed()), Reason::closedByAgent);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 15s);
}

TEST(PhoneConnection, aWithheldRevealLeavesInOneWriteWithTheHello) {
    bool cameTogether = false;
    AgentForTests agent([&](AgentEnd& end) {
        SecureHandshake::Responder responder(end.identity);
        end.sendFrame(FrameKind::handshake, responder.receive(end.receiveFrame().payload));
        auto result = responder.finish(end.receiveFrame().payload);
        cameTogether = end.stream.rdbuf()->in_avail() > 0;  // read, but not asked for yet
        end.session = std::move(result.session);
        end.receive<Hello>();
        end.send({Control::Rejected{Rejection::pinRequired}});
        end.waitForEnd();
    });
    PhoneConnection phone(newIdentity());
    ASSERT_TRUE(phone.connect("127.0.0.1", agent.port()));
    ASSERT_TRUE(phone.secure(10s, true));
    phone.send({phone.hello("Test")});
    EXPECT_TRUE(phone.waitFor<Control::Rejected>());
    phone.close();
    agent.finish();
    EXPECT_TRUE(cameTogether);
}

TEST(PhoneConnection, misbehavingReachesTheAgentAsItIs) {
    Bytes unsealed, box;
    std::string outcome;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        unsealed = end.receiveFrame().payload;
        const Bytes first = end.receiveSealed();
        end.send({Control::Pong{first.size()}});
        try {
            end.receiveSealed();
            outcome = "opened";
        } catch (const AuthenticationError&) {
            outcome = "refused";
        }
    });
    SecuredPhone secured(agent);
    PhoneConnection& phone = secured.phone;
    phone.sendFrame(FrameKind::audio, Bytes{1, 2});
    phone.sendInner(FrameKind::audio, Bytes(100));
    EXPECT_EQ(phone.waitFor<Control::Pong>(), Control::Pong{105});
    phone.seal(Bytes{});  // its place in the counters stays empty
    phone.sendSealed(Bytes{1});
    EXPECT_TRUE(phone.waitClosed());
    agent.finish();
    EXPECT_EQ(unsealed, (Bytes{1, 2}));
    EXPECT_EQ(outcome, "refused");
}

TEST(PhoneConnection, whileReadingIsPausedTheAgentsSendsComeToAHalt) {
    constexpr std::size_t pieces = 64, pieceLength = 1 << 20;
    std::atomic<std::size_t> sent = 0;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        end.receiveControl();
        for (; sent < pieces; ++sent)
            end.send(FrameBuffer(FrameKind::audio, Bytes(pieceLength)));
        end.waitForEnd();
    });
    PhoneConnection phone(newIdentity());
    ASSERT_TRUE(phone.connect("127.0.0.1", agent.port(), 10s, 65536));
    ASSERT_TRUE(phone.secure());
    phone.pauseReading(true);
    const auto before = phone.counts();
    phone.send({Control::RequestKeyframe{}});
    EXPECT_FALSE(phone.next(300ms));
    EXPECT_EQ(phone.counts().bytesReceived, before.bytesReceived);
    EXPECT_LT(sent, pieces);
    phone.pauseReading(false);
    for (std::size_t i = 0; i < pieces; ++i)
        ASSERT_TRUE(phone.waitFor<AudioPacket>()) << i;
}

TEST(PhoneConnection, whatNobodyTakesIsNotReadWithoutEnd) {
    constexpr std::size_t pieces = 9, pieceLength = 16 << 20;
    std::atomic<std::size_t> sent = 0;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        // One byte below the largest payload that fits into a box.
        for (; sent < pieces; ++sent)
            end.send(FrameBuffer(FrameKind::audio, Bytes(pieceLength - 21)));
    });
    SecuredPhone secured(agent);
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (sent < 4 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    for (std::size_t taken = 0; taken < pieces; ++taken) {
        EXPECT_LE(secured.phone.counts().audioPackets, taken + 6);
        ASSERT_TRUE(secured.phone.waitFor<AudioPacket>()) << taken;
    }
    EXPECT_EQ(reasonOf(secured.phone.waitClosed()), Reason::closedByAgent);
}

TEST(PhoneConnection, theAgentReadsAnEndAfterWhatWasSent) {
    bool ended = false;
    std::uint64_t value = 0;
    AgentForTests agent([&](AgentEnd& end) {
        end.secure();
        value = end.receive<Control::Ping>().value;
        try {
            end.receiveFrame();
        } catch (const AgentEnd::Gone&) {
            ended = true;
        }
        end.send({Control::Pong{value}});
    });
    SecuredPhone secured(agent);
    secured.phone.send({Control::Ping{18446744073709551615u}});
    secured.phone.shutdownSending();
    EXPECT_TRUE(secured.phone.waitFor<Control::Pong>());
    secured.phone.close();
    agent.finish();
    EXPECT_TRUE(ended);
    EXPECT_EQ(value, 18446744073709551615u);
}

TEST(PhoneConnection, endingItHereIsSaidOnce) {
    for (const bool abort : {false, true}) {
        SCOPED_TRACE(abort);
        AgentForTests agent([](AgentEnd& end) {
            end.secure();
            end.waitForEnd();
        });
        SecuredPhone secured(agent);
        abort ? secured.phone.abort() : secured.phone.close();
        secured.phone.close();
        EXPECT_EQ(reasonOf(secured.phone.waitClosed()), Reason::closedHere);
        EXPECT_FALSE(secured.phone.next(1s));
    }
}

}  // namespace

}  // namespace orvel::phone
