// A phone that sends whatever the input says, to a whole session: raw bytes before the handshake,
// after it, and sealed plaintexts of any content. The session must end or bear it.

#include "Fuzz/Fuzz.h"
#include "Fuzz/Pieces.h"
#include "OrvelAgent/Core/ClientSession.h"
#include "OrvelAgent/Platform/Fake/FakeNetwork.h"

using namespace orvel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Identity agent{PrivateKey::generate()}, phone{PrivateKey::generate()};
    Pieces pieces({data, size});
    const std::uint8_t mode = pieces.byte();

    VirtualTime time;
    SerialQueue queue("orvel.agent", time);
    auto wire = std::make_shared<FakeWire>();
    auto session = std::make_shared<ClientSession>(
        queue, std::make_unique<FakeConnection>(queue, wire), agent);
    int ends = 0;
    session->onControl = [&](const Control& control) {
        claim(ends == 0, "nothing is heard after the end");
        if (control.as<Hello>()) session->setAuthenticated(true);
        if (control.as<Control::Ping>()) session->sendControl({Control::Pong{1}});
        if (control.as<Control::RequestKeyframe>()) session->reject(Rejection::wrongPin);
    };
    session->onEnd = [&] { ++ends; };
    queue.post([&] { session->start(); });
    const auto turn = [&] {
        wire->poke();
        time.runPending();
    };

    std::unique_ptr<SecureSession> sealing;
    if (mode & 1) {
        SecureHandshake::Initiator initiator(phone);
        append(wire->toAgent, Framing::encode(FrameKind::handshake, initiator.commit()));
        turn();
        auto finished = initiator.receive(ByteView(wire->fromAgent).subspan(Framing::headerLength));
        append(wire->toAgent, Framing::encode(FrameKind::handshake, finished.reveal));
        turn();
        sealing = std::move(finished.result.session);
    }
    while (!pieces.isEmpty()) {
        const std::uint8_t how = pieces.byte();
        const auto bytes = pieces.piece();
        if (sealing && (how & 3) == 0) {
            append(wire->toAgent, Framing::encode(FrameKind::sealed, sealing->seal(bytes)));
        } else if (sealing && (how & 3) == 1) {
            const auto frame = Framing::encode(FrameKind::control, bytes);
            append(wire->toAgent, Framing::encode(FrameKind::sealed, sealing->seal(frame)));
        } else {
            append(wire->toAgent, bytes);
        }
        if (how & 4) turn();
        if (how & 8) time.advance(std::chrono::seconds(how));
    }
    turn();
    wire->phoneClosed = true;
    turn();
    time.advance(std::chrono::minutes(4));
    claim(ends == 1, "every session ends, once");
    return 0;
}
