#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Fake/FakeNetwork.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

// A phone for tests in virtual time, played by hand so that it can misbehave. Every call turns the
// time's pending tasks, so that the agent has answered when it returns.
class TestPhone {
public:
    TestPhone(VirtualTime& phoneTime, std::shared_ptr<FakeWire> phoneWire,
              Identity phoneIdentity = {PrivateKey::generate()})
        : time(phoneTime),
          identity(std::move(phoneIdentity)),
          initiator(identity),
          wire(std::move(phoneWire)) {
        time.runPending();
    }

    void sendRaw(ByteView bytes) {
        append(wire->toAgent, bytes);
        turn();
    }
    Bytes commitFrame() const { return Framing::encode(FrameKind::handshake, initiator.commit()); }

    // Commit sent, keys received: what is left to send is the reveal.
    Bytes revealFrame() {
        sendRaw(commitFrame());
        EXPECT_EQ(wire->fromAgent.size(), Framing::headerLength + SecureHandshake::keysLength);
        auto finished = initiator.receive(ByteView(wire->fromAgent).subspan(Framing::headerLength));
        wire->fromAgent.clear();
        code = finished.result.code;
        session = std::move(finished.result.session);
        return Framing::encode(FrameKind::handshake, finished.reveal);
    }
    void shakeHands() { sendRaw(revealFrame()); }

    Bytes sealed(ByteView innerFrame) {
        return Framing::encode(FrameKind::sealed, session->seal(innerFrame));
    }
    Bytes sealed(const Control& control) { return sealed(Framing::encodeControl(control)); }
    void send(const Control& control) { sendRaw(sealed(control)); }

    Hello hello() const {
        Hello hello;
        hello.deviceID = identity.fingerprint();
        hello.deviceName = "Telefon";
        return hello;
    }
    Hello helloWithPin() const {
        Hello answer = hello();
        answer.pin = code;
        return answer;
    }

    // What the agent has sent since the last call, opened.
    std::vector<Frame> frames() {
        turn();
        std::vector<Frame> opened;
        for (const Frame& outer : outerParser.feed(std::exchange(wire->fromAgent, {}))) {
            EXPECT_EQ(outer.kind, FrameKind::sealed);
            for (Frame& frame : innerParser.feed(session->open(outer.payload))) {
                opened.push_back(std::move(frame));
            }
        }
        return opened;
    }
    std::vector<Control> controls() {
        std::vector<Control> result;
        for (const Frame& frame : frames()) {
            if (frame.kind == FrameKind::control)
                result.push_back(Framing::decodeControl(frame.payload));
        }
        return result;
    }

    void close() {
        wire->phoneClosed = true;
        turn();
    }
    void stall(bool stalled) {
        wire->isStalled = stalled;
        turn();
    }
    bool isOver() const { return wire->isOver(); }
    void turn() {
        wire->poke();
        time.runPending();
    }

private:
    VirtualTime& time;

public:
    const Identity identity;
    std::string code;
    SecureHandshake::Initiator initiator;
    std::shared_ptr<FakeWire> wire;
    std::unique_ptr<SecureSession> session;
    FrameParser outerParser, innerParser;
};

}  // namespace orvel
